// SPDX-License-Identifier: Apache-2.0
#include "pcd/PcdPrecision.hpp"

#include "pcd/PointShading.hpp"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>

#include <gtest/gtest.h>

namespace {

using ExportLib::PcdAxis;

TEST(PcdAxis, ShiftIsTheCentreRoundedDown) {
    const PcdAxis axis = PcdAxis::of(500, 1501);
    EXPECT_EQ(axis.shift, 1000);
    EXPECT_EQ(axis.farthest, 501);
}

TEST(PcdAxis, NegativeCoordinatesAreShiftedAsIfTheyReachedUpToZero) {
    const PcdAxis axis = PcdAxis::of(-2000, -1990);
    EXPECT_EQ(axis.shift, -1000);
    EXPECT_EQ(axis.farthest, 1000);
}

TEST(PcdAxis, RoundingIsHalfAUnitOfTheLastDigitOfTheFarthestCoordinate) {
    const PcdAxis axis = PcdAxis::of(500, 1500);
    EXPECT_EQ(axis.rounding(3), 0.5);
    EXPECT_EQ(axis.rounding(1), 50);
    // As a stream takes them: 0 is one digit, and negative numbers are six.
    EXPECT_EQ(axis.rounding(0), 50);
    EXPECT_EQ(axis.rounding(-20), axis.rounding(6));
    EXPECT_EQ(axis.rounding(17), 0);
    EXPECT_EQ(PcdAxis::of(7, 7).rounding(1), 0);
}

TEST(PcdAxis, StepsAreKeptByTheSmallestSufficientPrecisionAndNoSmallerOne) {
    const PcdAxis axis = PcdAxis::of(500, 1500);
    EXPECT_EQ(axis.precisionToKeep(0.01), 5);
    EXPECT_TRUE(axis.keeps(0.01, 5));
    EXPECT_FALSE(axis.keeps(0.01, 4));
    EXPECT_EQ(axis.precisionToKeep(0), 17);
    EXPECT_EQ(axis.precisionToKeep(1e9), 1);
}

TEST(PcdAxis, WrittenCoordinatesAreNeverRoundedByMoreThanIsTold) {
    std::mt19937_64 random(3);
    std::uniform_real_distribution<double> free(0, 1);
    for (int precision = 1; precision <= 12; ++precision) {
        const double size = std::pow(10.0, 6 * free(random));
        const PcdAxis axis = PcdAxis::of(0, size);
        double most = 0;
        for (int number = 0; number < 500; ++number) {
            const double written = size * free(random) - axis.shift;
            char text[64];
            std::snprintf(text, sizeof text, "%.*g", precision, written);
            most = std::max(most, std::abs(std::strtod(text, nullptr) - written));
        }
        EXPECT_LE(most, axis.rounding(precision) * (1 + 1e-9)) << precision;
        EXPECT_GT(most, axis.rounding(precision) / 10) << precision;
    }
}

TEST(PcdAxis, ShiftOfMoreThanEightDigitsIsRoundedInTheHeader) {
    EXPECT_EQ(PcdAxis::of(99999998, 99999999).shiftRounding(), 0);
    // 123456789 is written 1.2345679e+08.
    EXPECT_EQ(PcdAxis::of(123456788.5, 123456790).shiftRounding(), 1);
}

TEST(PcdColorDigits, BringBackEveryColourAndOneLessDoesNot) {
    const auto isKept = [](float color, int digits) {
        char text[64];
        std::snprintf(text, sizeof text, "%.*g", digits, static_cast<double>(color));
        return std::strtof(text, nullptr) == color;
    };
    const ExportLib::PointShading shading({0, 1}, 0, 65535);
    bool isAnyLost = false;
    for (int number = 0; number <= 4000; ++number) {
        const float color =
            shading.color(number / 4000.0, shading.intensity(static_cast<unsigned short>(number * 16)));
        EXPECT_TRUE(isKept(color, ExportLib::pcdColorDigits)) << number;
        isAnyLost = isAnyLost || !isKept(color, ExportLib::pcdColorDigits - 1);
    }
    EXPECT_TRUE(isAnyLost);
}

} // namespace
