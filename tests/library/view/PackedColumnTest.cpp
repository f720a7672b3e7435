// SPDX-License-Identifier: Apache-2.0
#include "library/view/PackedColumn.hpp"

#include "library/view/UnpackedColumn.hpp"

#include <limits>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using ::testing::ElementsAre;
using ::testing::Optional;

using Numbers = std::vector<std::optional<std::int64_t>>;
constexpr std::int64_t range = std::int64_t{1} << 52;

TEST(PackedColumn, WholeNumbersOfEveryWidthComeBack) {
    std::mt19937_64 random(5);
    for (std::int64_t top : {std::int64_t{0}, std::int64_t{1}, std::int64_t{127}, std::int64_t{128},
                             std::int64_t{70000}, std::int64_t{1} << 40, range - 1}) {
        Numbers values;
        for (int i = 0; i < 200; ++i)
            values.emplace_back(-1000 +
                                static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(top + 1)));
        values.emplace_back(-1000);
        values.emplace_back(-1000 + top);
        const auto column = packIntegers(values, 3);
        ASSERT_TRUE(column) << top;
        EXPECT_EQ(column->max - column->min, top);
        EXPECT_EQ(Support::unpackedIntegers(*column, values.size()), values);
        EXPECT_EQ(column->decimals, 3U);
    }
}

TEST(PackedColumn, EqualNumbersTakeNoBytes) {
    const auto column = packIntegers(Numbers{7, 7, 7}, 0);
    ASSERT_TRUE(column);
    EXPECT_EQ(column->width, 0U);
    EXPECT_EQ(column->bytes, "");
    EXPECT_EQ(column->min, 7);
}

TEST(PackedColumn, GapsComeBackAsGaps) {
    const Numbers values{{}, 5, {}, 9, 5};
    const auto column = packIntegers(values, 0);
    ASSERT_TRUE(column);
    EXPECT_TRUE(column->hasGaps);
    EXPECT_EQ(Support::unpackedIntegers(*column, values.size()), values);
    EXPECT_TRUE(packIntegers(Numbers{{}, {}}, 0));
    EXPECT_TRUE(packIntegers(Numbers{}, 0));
}

TEST(PackedColumn, ARangeThatDoublesCannotTellApartIsRefused) {
    EXPECT_FALSE(packIntegers(Numbers{0, range}, 0));
    EXPECT_FALSE(packIntegers(Numbers{0, range - 1, {}}, 0)); // a gap takes a number of its own
    EXPECT_FALSE(packIntegers(
        Numbers{std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()}, 0));
    EXPECT_TRUE(packIntegers(
        Numbers{std::numeric_limits<std::int64_t>::max() - 5, std::numeric_limits<std::int64_t>::max()}, 0));
}

TEST(PackedColumn, NumbersWithFewDecimalsBecomeWholeOnes) {
    const std::vector<double> values{0.5, -12.25, 1e6, std::nan("")};
    const PackedColumn column = packFloats<double>(values);
    EXPECT_EQ(column.kind, PackedColumn::Kind::Integer);
    EXPECT_EQ(column.decimals, 2U);
    EXPECT_THAT(Support::unpackedIntegers(column, 4),
                ElementsAre(Optional(50), Optional(-1225), Optional(100'000'000), std::nullopt));
    const std::vector<float> tenths{0.1F, 0.7F, 12.3F};
    EXPECT_EQ(packFloats<float>(tenths).decimals, 1U);
}

TEST(PackedColumn, OtherNumbersComeBackBitForBit) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    for (const std::vector<double>& values : {std::vector<double>{1.0 / 3, 2},
                                              {infinity, 1},
                                              {-0.0, 1},
                                              {1e300},
                                              {5e-324, 0.5},
                                              {0.5, 9e15},
                                              {0.1, 9e14}}) {
        const PackedColumn column = packFloats<double>(values);
        const auto back = Support::unpacked(column, values.size());
        EXPECT_EQ(0, std::memcmp(back.data(), values.data(), values.size() * sizeof(double)))
            << ::testing::PrintToString(values);
    }
    const std::vector<float> thirds{1.0F / 3, 2.0F / 3};
    const PackedColumn column = packFloats<float>(thirds);
    EXPECT_EQ(column.kind, PackedColumn::Kind::Float);
    EXPECT_EQ(column.width, 4U);
}

TEST(PackedColumn, CoordinatesHaveTheDecimalsThatTheirFileMeans) {
    // As readers make them: 0.01 has no exact double, so products of it stand beside the decimals.
    std::vector<double> values;
    for (int k = 63700000; k < 63701000; ++k)
        values.push_back(k * 0.01 + 0.0);
    bool isBeside = false;
    for (int k = 0; k < 1000; ++k)
        isBeside = isBeside || values[static_cast<std::size_t>(k)] != (63700000 + k) / 100.0;
    ASSERT_TRUE(isBeside);
    const PackedColumn column = packCoordinates(values);
    EXPECT_EQ(column.decimals, 2U);
    EXPECT_EQ(column.min, 63700000);
    EXPECT_EQ(column.max, 63700999);
}

TEST(PackedColumn, CoordinatesOnNoDecimalStepComeBackBitForBit) {
    std::vector<double> values;
    for (int k = 0; k < 100; ++k)
        values.push_back(k * 1.16451354e-06 + 1692500.352);
    const PackedColumn column = packCoordinates(values);
    EXPECT_EQ(column.kind, PackedColumn::Kind::Float);
    EXPECT_EQ(Support::unpacked(column, values.size()), values);
    const std::vector<double> vast{1e20, 3e20, -7.5};
    EXPECT_EQ(Support::unpacked(packCoordinates(vast), vast.size()), vast);
}

TEST(PackedColumn, DegreesKeepSevenDecimals) {
    const std::vector<double> values{-946606311 * 1e-7, -946834655 * 1e-7};
    EXPECT_EQ(packCoordinates(values).decimals, 7U);
}

TEST(Base64, IsThatOfTheStandard) {
    // RFC 4648, section 10.
    for (const auto& [bytes, text] : std::vector<std::pair<std::string, std::string>>{{"", ""},
                                                                                      {"f", "Zg=="},
                                                                                      {"fo", "Zm8="},
                                                                                      {"foo", "Zm9v"},
                                                                                      {"foob", "Zm9vYg=="},
                                                                                      {"fooba", "Zm9vYmE="},
                                                                                      {"foobar", "Zm9vYmFy"}})
        EXPECT_EQ(base64(bytes), text);
    EXPECT_EQ(base64(std::string("\xFF\xFE\xFD", 3)), "//79");
}

} // namespace
} // namespace Tidewatch
