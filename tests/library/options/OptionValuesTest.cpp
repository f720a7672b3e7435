// SPDX-License-Identifier: Apache-2.0
#include "library/options/OptionValues.hpp"

#include <array>
#include <cstdint>
#include <limits>
#include <string>

#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

TEST(ParseNumber, WholeTextsOfTheTypeGiveTheirValue) {
    EXPECT_EQ(parseNumber<int>("-1"), -1);
    EXPECT_EQ(parseNumber<int>("010"), 10);
    EXPECT_EQ(parseNumber<std::uint64_t>("18446744073709551615"), std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(parseNumber<double>("0.1"), 0.1);
    EXPECT_EQ(parseNumber<double>("-1e3"), -1000.0);
}

TEST(ParseNumber, AnythingElseGivesNothing) {
    for (const char* const text : {"", " 1", "1 ", "1x", "0x10", "2147483648", "1.5", "--1", "one"})
        EXPECT_FALSE(parseNumber<int>(text)) << text;
    for (const char* const text : {"", "nan", "-nan", "1,5", "1.5m", "1e999", "."})
        EXPECT_FALSE(parseNumber<double>(text)) << text;
    EXPECT_FALSE(parseNumber<std::uint64_t>("-1"));
}

TEST(ParseByteSize, SuffixesArePowersOf1024InEitherCase) {
    EXPECT_EQ(parseByteSize("0"), 0U);
    EXPECT_EQ(parseByteSize("512"), 512U);
    EXPECT_EQ(parseByteSize("1K"), 1024U);
    EXPECT_EQ(parseByteSize("512M"), 536870912U);
    EXPECT_EQ(parseByteSize("4g"), 4294967296U);
    EXPECT_EQ(parseByteSize("2T"), 2199023255552U);
}

TEST(ParseByteSize, MoreThan64BitsGivesNothing) {
    EXPECT_EQ(parseByteSize("16777215T"), std::uint64_t{16777215} << 40);
    EXPECT_FALSE(parseByteSize("16777216T"));
    EXPECT_FALSE(parseByteSize("18446744073709551616"));
}

TEST(ParseByteSize, OtherTextsGiveNothing) {
    for (const char* const text : {"", "M", "1.5G", "-1K", "1KB", "1 M", "1MM", "k1"})
        EXPECT_FALSE(parseByteSize(text)) << text;
}

TEST(ParseTimeRange, TwoTimesAreBothEnds) {
    const auto range = parseTimeRange("-1.5:2e3");
    ASSERT_TRUE(range);
    EXPECT_EQ(range->first, -1.5);
    EXPECT_EQ(range->last, 2000);
}

TEST(ParseTimeRange, OneTimeIsBothEnds) {
    const auto range = parseTimeRange("0.1");
    ASSERT_TRUE(range);
    EXPECT_EQ(range->first, 0.1);
    EXPECT_EQ(range->last, 0.1);
}

TEST(ParseTimeRange, OtherTextsGiveNothing) {
    for (const char* const text : {"", ":", "1:", ":1", "1:2:3", "a:b", "nan", "nan:1", "1-2"})
        EXPECT_FALSE(parseTimeRange(text)) << text;
    EXPECT_THROW(static_cast<void>(parseTimeRange("2:1")), InvalidValue);
}

TEST(ParseRanges, RangesAndSingleValuesComeInTheirOrder) {
    const auto ranges = parseRanges("1:2,5,-3.5:0");
    ASSERT_TRUE(ranges);
    ASSERT_EQ(ranges->size(), 3U);
    EXPECT_EQ((*ranges)[0].low, 1);
    EXPECT_EQ((*ranges)[0].high, 2);
    EXPECT_EQ((*ranges)[1].low, 5);
    EXPECT_EQ((*ranges)[1].high, 5);
    EXPECT_EQ((*ranges)[2].low, -3.5);
}

TEST(ParseRanges, OtherTextsGiveNothing) {
    for (const char* const text : {"", ",", "1,", ",1", "1:2:3", "a", "1 ,2", "nan"})
        EXPECT_FALSE(parseRanges(text)) << text;
    EXPECT_THROW(static_cast<void>(parseRanges("2:1")), InvalidValue);
}

TEST(ParseBox, IsFourOrSixNumbersEachLowerOneBelowItsUpperOne) {
    const auto flat = parseBox("-1,2,3.5,4");
    ASSERT_TRUE(flat);
    EXPECT_TRUE(flat->lower.x == -1 && flat->lower.y == 2 && flat->upper.x == 3.5 && flat->upper.y == 4);
    EXPECT_TRUE(flat->contains({0, 3, 1e300}));
    const auto solid = parseBox("0,0,1,1,5,6");
    ASSERT_TRUE(solid);
    EXPECT_TRUE(solid->contains({0, 0, 5}));
    EXPECT_FALSE(solid->contains({0, 0, 6}));
    for (const char* const text :
         {"", "1,2,3", "1,2,3,4,5", "1,2,3,4,5,6,7", "a,b,c,d", "0,0,inf,1", "0,0,,1"})
        EXPECT_FALSE(parseBox(text)) << text;
    for (const char* const text : {"1,0,1,1", "0,2,1,1", "0,0,1,1,3,3"})
        EXPECT_THROW(static_cast<void>(parseBox(text)), InvalidValue) << text;
}

TEST(ParseClasses, AreNumbersOfAByte) {
    EXPECT_EQ(parseClasses("2,9,2"), (std::set<std::uint8_t>{2, 9}));
    for (const char* const text : {"", "256", "-1", "2,", "2 9", "ground"})
        EXPECT_FALSE(parseClasses(text)) << text;
}

TEST(ParseReturns, AreWordsAndNumbers) {
    const auto choice = parseReturns("first,only,3,15");
    ASSERT_TRUE(choice);
    EXPECT_TRUE(choice->first && choice->only && !choice->last);
    EXPECT_EQ(choice->numbers, (std::set<std::uint8_t>{3, 15}));
    for (const char* const text : {"", "0", "16", "First", "first,", "all"})
        EXPECT_FALSE(parseReturns(text)) << text;
}

TEST(ParseTriple, IsThreeNumbersOrOneForAll) {
    using Triple = std::array<double, 3>;
    EXPECT_EQ(parseTriple("1,-2.5,0"), (Triple{1, -2.5, 0}));
    EXPECT_EQ(parseTriple("0.25"), (Triple{0.25, 0.25, 0.25}));
    for (const char* const text : {"", "1,2", "1,2,3,4", "1,,3", "a", "1,2,inf", "1;2;3", ",1"})
        EXPECT_EQ(parseTriple(text), std::nullopt) << text;
    EXPECT_EQ(parseSteps("0.5,1,2"), (Triple{0.5, 1, 2}));
    EXPECT_EQ(parseSteps("0.5,0,2"), std::nullopt);
    EXPECT_EQ(parseSteps("-1"), std::nullopt);
}

} // namespace
} // namespace Tidewatch
