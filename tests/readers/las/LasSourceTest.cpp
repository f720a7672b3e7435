// SPDX-License-Identifier: Apache-2.0
#include "readers/las/LasSource.hpp"

#include "support/LasFileBuilder.hpp"
#include "support/MemoryFile.hpp"

#include <gtest/gtest.h>

namespace {

using Support::LasFileBuilder;
using Tidewatch::LasSource;

class LasSourceTest : public ::testing::Test {
protected:
    static ConvLib::ReadOptions fragmentsOf(std::uint64_t points) {
        ConvLib::ReadOptions options;
        options.FragmentPoints = points;
        options.MaximumArrayBytes = std::uint64_t{1} << 40;
        return options;
    }
};

TEST_F(LasSourceTest, FragmentsShareThePointsOut) {
    LasFileBuilder file;
    file.points.resize(25);
    const Support::MemoryFile memory(file.build());
    const LasSource source(memory.path(), fragmentsOf(10));
    EXPECT_EQ(source.fragmentCount(), 3U);
    EXPECT_EQ(source.pointsOf(1), 10U);
    EXPECT_EQ(source.pointsOf(2), 5U);
    EXPECT_EQ(LasSource(memory.path(), fragmentsOf(25)).fragmentCount(), 1U);
    EXPECT_EQ(LasSource(memory.path(), fragmentsOf(~std::uint64_t{0})).pointsOf(0), 25U);
}

TEST_F(LasSourceTest, NamesOfVeryManyFragmentsStayInTheOrderOfPoints) {
    LasFileBuilder file;
    file.points.resize(1'000'001);
    const Support::MemoryFile memory(file.build());
    const LasSource million(memory.path(), fragmentsOf(1));
    EXPECT_EQ(million.fragmentName(0), "0000000");
    EXPECT_EQ(million.fragmentName(999'999), "0999999");
    EXPECT_EQ(million.fragmentName(1'000'000), "1000000");
    EXPECT_EQ(LasSource(memory.path(), fragmentsOf(2)).fragmentName(7), "000007");
}

TEST_F(LasSourceTest, FieldsThatAreWantedComeInTheOrderOfTheWish) {
    LasFileBuilder file;
    file.addVariedPoints(5);
    const Support::MemoryFile memory(file.build());
    LasSource source(memory.path(), fragmentsOf(10));
    const std::vector<std::size_t> wanted{3, 0};
    const auto decoded = source.decode(0, wanted, {});
    ASSERT_EQ(decoded.size(), 1U);
    const auto& arrays = decoded.front().arrays;
    ASSERT_EQ(arrays.size(), 2U);
    EXPECT_EQ(arrays[0]->elementType(), *source.fields()[3].elementType);
    EXPECT_EQ(arrays[1]->elementType(), *source.fields()[0].elementType);
}

} // namespace
