// SPDX-License-Identifier: Apache-2.0
#include "library/las/LasStatement.hpp"

#include "anchor/Error.hpp"
#include "support/LasFileBuilder.hpp"
#include "support/TemporaryFolder.hpp"

#include <numeric>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

class LasStatementTest : public ::testing::Test {
protected:
    [[nodiscard]] LasStatement read(const std::string& bytes) const {
        Support::writeBytes(folder_ / "a.las", bytes);
        return LasStatement::read(folder_ / "a.las");
    }
    [[nodiscard]] static std::string file(unsigned minor, unsigned format) {
        Support::LasFileBuilder builder;
        builder.minor = minor;
        builder.format = format;
        builder.addVariedPoints(7);
        return builder.build();
    }

    Support::TemporaryFolder folder_;
};

TEST_F(LasStatementTest, TellsVersionFormatAndCount) {
    for (const unsigned minor : {2U, 3U, 4U}) {
        const unsigned format = minor == 4 ? 7 : 1;
        const LasStatement statement = read(file(minor, format));
        EXPECT_EQ(statement.versionMinor, minor);
        EXPECT_EQ(statement.pointFormat, format);
        EXPECT_FALSE(statement.compressed);
        EXPECT_EQ(statement.points, 7U);
        EXPECT_EQ(statement.pointsByReturn.size(), minor == 4 ? 15U : 5U);
    }
}

TEST_F(LasStatementTest, TakesEachFieldFromItsPlace) {
    std::string bytes = file(4, 6);
    Support::patch<std::uint8_t>(bytes, 104, 0x80 | 6);
    Support::patch<std::uint32_t>(bytes, 107, 99); // the count of old readers
    Support::patch<std::uint64_t>(bytes, 247, 5'000'000'000);
    for (std::uint64_t i = 0; i < 15; ++i)
        Support::patch<std::uint64_t>(bytes, 255 + 8 * i, 10 + i);
    for (std::size_t i = 0; i < 6; ++i) {
        Support::patch<double>(bytes, 131 + 8 * i, 0.25 + static_cast<double>(i));
        Support::patch<double>(bytes, 179 + 8 * i, 1.5 + static_cast<double>(i));
    }
    const LasStatement statement = read(bytes);
    EXPECT_TRUE(statement.compressed);
    EXPECT_EQ(statement.pointFormat, 6U);
    EXPECT_EQ(statement.points, 5'000'000'000U);
    std::vector<std::uint64_t> returns(15);
    std::iota(returns.begin(), returns.end(), 10U);
    EXPECT_EQ(statement.pointsByReturn, returns);
    EXPECT_THAT(statement.step, ::testing::ElementsAre(0.25, 1.25, 2.25));
    EXPECT_THAT(statement.offset, ::testing::ElementsAre(3.25, 4.25, 5.25));
    EXPECT_THAT(statement.upper, ::testing::ElementsAre(1.5, 3.5, 5.5));
    EXPECT_THAT(statement.lower, ::testing::ElementsAre(2.5, 4.5, 6.5));

    bytes = file(2, 0);
    for (std::uint32_t i = 0; i < 5; ++i)
        Support::patch<std::uint32_t>(bytes, 111 + 4 * i, 20 + i);
    EXPECT_THAT(read(bytes).pointsByReturn, ::testing::ElementsAre(20, 21, 22, 23, 24));
}

TEST_F(LasStatementTest, WhatIsNoHeaderIsRefused) {
    const std::string whole = file(4, 6);
    for (const std::size_t size : {std::size_t{0}, std::size_t{3}, std::size_t{226}, std::size_t{374}})
        EXPECT_THROW((void)read(whole.substr(0, size)), Anchor::FormatError) << size;
    EXPECT_EQ(read(whole.substr(0, 375)).versionMinor, 4U);
    std::string bytes = whole;
    bytes[0] = 'X';
    EXPECT_THROW((void)read(bytes), Anchor::FormatError);
    bytes = whole;
    bytes[25] = 5;
    EXPECT_THROW((void)read(bytes), Anchor::FormatError);
    EXPECT_THROW((void)LasStatement::read(folder_ / "nowhere"), Anchor::FileError);
}

} // namespace
} // namespace Tidewatch
