// SPDX-License-Identifier: Apache-2.0
#include "library/report/Wording.hpp"

#include <cstdint>
#include <limits>

#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

TEST(Grouped, DigitsStandInThrees) {
    EXPECT_EQ(grouped(0), "0");
    EXPECT_EQ(grouped(999), "999");
    EXPECT_EQ(grouped(1000), "1 000");
    EXPECT_EQ(grouped(110000), "110 000");
    EXPECT_EQ(grouped(1234567), "1 234 567");
    EXPECT_EQ(grouped(std::numeric_limits<std::uint64_t>::max()), "18 446 744 073 709 551 615");
}

TEST(Counted, OnlyOneIsSingular) {
    EXPECT_EQ(counted(0, "point"), "0 points");
    EXPECT_EQ(counted(1, "point"), "1 point");
    EXPECT_EQ(counted(2000, "point"), "2 000 points");
}

TEST(CoordinateText, HasNoExponentAndNoMoreDecimalsThanCoordinatesHave) {
    EXPECT_EQ(coordinateText(2e6), "2000000");
    EXPECT_EQ(coordinateText(-9e7), "-90000000");
    EXPECT_EQ(coordinateText(1536870.91175), "1536870.91175");
    EXPECT_EQ(coordinateText(4.000249999999999), "4.00025");
    EXPECT_EQ(coordinateText(-1e-12), "0");
    EXPECT_EQ(coordinateText(9007199254740992), "9007199254740992");
    EXPECT_EQ(coordinateText(1e300), "1e+300");
    EXPECT_EQ(coordinateText(-std::numeric_limits<double>::infinity()), "-inf");
    EXPECT_EQ(coordinateText(std::numeric_limits<double>::quiet_NaN()), "nan");
}

TEST(ShortestText, ReadsBackAsTheSameNumber) {
    EXPECT_EQ(shortestText(2.5), "2.5");
    EXPECT_EQ(shortestText(0.1), "0.1");
    EXPECT_EQ(shortestText(1e-9), "1e-09");
    EXPECT_EQ(shortestText(123456789.125), "123456789.125");
}

TEST(GridAtTime, NamesBoth) {
    EXPECT_EQ(gridAtTime("dunes", 6), "grid \"dunes\" at time 6");
}

TEST(Joined, SeparatesTexts) {
    EXPECT_EQ(joined({}), "");
    EXPECT_EQ(joined({"a"}), "a");
    EXPECT_EQ(joined({"a", "b"}), "a, b");
    EXPECT_EQ(joined({"a", "b"}, "; "), "a; b");
}

TEST(CoordinateText, HasTheDecimalsOfItsStep) {
    EXPECT_EQ(coordinateText(1536870.9, 0.01), "1536870.90");
    EXPECT_EQ(coordinateText(5921000.0000001, 0.00025), "5921000.00000");
    EXPECT_EQ(coordinateText(-94.6834654, 1e-7), "-94.6834654");
    EXPECT_EQ(coordinateText(7, 1), "7");
    EXPECT_EQ(coordinateText(-0.001, 0.01), "0.00");
    // As many as tell its multiples apart.
    EXPECT_EQ(coordinateText(1694038.4456376971, 1.16451354e-06), "1694038.445638");
    EXPECT_EQ(coordinateText(2.5, 0), "2.5");
    EXPECT_EQ(coordinateText(2.5, -1), "2.5");
}

} // namespace
} // namespace Tidewatch
