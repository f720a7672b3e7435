// SPDX-License-Identifier: Apache-2.0
#include "library/pcd/PcdRounding.hpp"

#include "convlib/NumberText.hpp"

#include <array>
#include <charconv>
#include <cmath>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using Points = std::vector<Geom::PhysicalSpace::point>;

CoordinateSurvey surveyOf(const Points& points) {
    CoordinateSurvey survey;
    survey.look(points);
    return survey;
}

TEST(PcdRounding, CoordinatesWithinTheDigitsLoseNothing) {
    // Shift 1000; the largest distance is 500, so eight digits reach to 0.00001.
    const auto survey = surveyOf({{500, 0, 0}, {1500, 0.01, 0}, {1000.01, 0, 0}});
    EXPECT_FALSE(PcdRounding::of(survey, {}, 8));
}

TEST(PcdRounding, TooFewDigitsLoseHalfAUnitOfTheLast) {
    const auto survey = surveyOf({{500, 0, 0}, {1500, 0, 0}, {1000.01, 0, 0}});
    // 500 with three digits: the unit of the last is 1.
    const auto rounding = PcdRounding::of(survey, {}, 3);
    ASSERT_TRUE(rounding);
    EXPECT_EQ(rounding->loss, 0.5);
    EXPECT_EQ(rounding->step, 0.01);
    EXPECT_EQ(rounding->sufficientPrecision, 5);
    EXPECT_FALSE(PcdRounding::of(survey, {}, 5));
    EXPECT_TRUE(PcdRounding::of(survey, {}, 4));
}

TEST(PcdRounding, TheInputsOwnStepCountsBeforeTheOneFound) {
    const auto survey = surveyOf({{0, 0, 0}, {2000, 0, 0}});
    EXPECT_FALSE(PcdRounding::of(survey, {}, 4));
    const auto rounding = PcdRounding::of(survey, Geom::PhysicalSpace::vector{0.001, 0.001, 0.001}, 4);
    ASSERT_TRUE(rounding);
    EXPECT_EQ(rounding->step, 0.001);
    EXPECT_EQ(rounding->loss, 0.5);
    EXPECT_EQ(rounding->sufficientPrecision, 7);
}

TEST(PcdRounding, PrecisionZeroIsOneDigitAndANegativeOneSix) {
    const auto survey = surveyOf({{0, 0, 0}, {2000.5, 0, 0}});
    EXPECT_EQ(PcdRounding::of(survey, {}, 0)->loss, 500);
    EXPECT_EQ(PcdRounding::of(survey, {}, 1)->loss, 500);
    EXPECT_FALSE(PcdRounding::of(survey, {}, -1));
    EXPECT_FALSE(PcdRounding::of(survey, {}, -20));
}

TEST(PcdRounding, FreeNumbersNeedAllDigitsOfADouble) {
    const auto survey = surveyOf({{0.1234567890123, 0, 0}, {1000.9876543210987, 0, 0}});
    const auto rounding = PcdRounding::of(survey, {}, 8);
    ASSERT_TRUE(rounding);
    EXPECT_DOUBLE_EQ(rounding->loss, 0.000005);
    EXPECT_FALSE(PcdRounding::of(survey, {}, rounding->sufficientPrecision));
    EXPECT_FALSE(PcdRounding::of(survey, {}, 17));
}

TEST(PcdRounding, TheWorstAxisIsToldAndTheDigitsSufficeForAll) {
    // Distances 500 and 0.5; the second needs a finer step.
    const auto survey = surveyOf({{500, 0.0001, 0}, {1500, 1, 0}, {1000.5, 0.5, 0}});
    const auto rounding = PcdRounding::of(survey, {}, 3);
    ASSERT_TRUE(rounding);
    EXPECT_EQ(rounding->loss, 0.5);
    EXPECT_EQ(rounding->step, 0.1);
    EXPECT_EQ(rounding->sufficientPrecision, 5);
    EXPECT_FALSE(PcdRounding::of(survey, {}, 5));
}

TEST(PcdRounding, AllNegativeCoordinatesAreShiftedByTheQuirk) {
    // The box reaches up to (almost) 0, so the shift is -1000 and the largest distance 1000, not 5.
    const auto survey = surveyOf({{-2000, 0, 0}, {-1990, 0, 0}, {-1995.5, 0, 0}});
    EXPECT_EQ(PcdRounding::of(survey, {}, 3)->loss, 5);
}

TEST(PcdRounding, AnEmptyCloudLosesNothing) {
    EXPECT_FALSE(PcdRounding::of(CoordinateSurvey(), {}, 1));
    EXPECT_EQ(PcdRounding::ofShift(CoordinateSurvey(), {}), 0);
}

TEST(PcdRounding, NoCoordinateIsEverRoundedByMore) {
    std::mt19937_64 random(3);
    std::uniform_real_distribution<double> free(0, 1);
    for (int precision = 1; precision <= 12; ++precision) {
        const double size = std::pow(10.0, 6 * free(random));
        Points points;
        for (int number = 0; number < 500; ++number)
            points.push_back({size * free(random), 0, 0});
        const auto survey = surveyOf(points);
        const auto rounding = PcdRounding::of(survey, {}, precision);
        ASSERT_TRUE(rounding);
        const auto axis = survey.axis(0);
        const double shift = std::floor((axis->upper - axis->lower) * 0.5 + axis->lower);
        double most = 0;
        for (const auto& point : points) {
            std::array<char, ConvLib::generalTextSize(17)> text;
            const double written = point.x - shift;
            double back = 0;
            std::from_chars(text.data(), ConvLib::appendGeneral(text.data(), written, precision), back);
            most = std::max(most, std::abs(back - written));
        }
        EXPECT_LE(most, rounding->loss * (1 + 1e-9)) << precision;
        EXPECT_GT(most, rounding->loss / 10) << precision;
    }
}

TEST(PcdRoundingOfShift, EightDigitsAreEnoughForSmallerShifts) {
    EXPECT_EQ(PcdRounding::ofShift(surveyOf({{99999998, 0, 0}, {99999999, 0, 0}}), {}), 0);
}

TEST(PcdRoundingOfShift, ALargerShiftIsRoundedInTheHeader) {
    // The shift 123456789 is written 1.2345679e+08.
    EXPECT_EQ(PcdRounding::ofShift(surveyOf({{123456788.5, 0, 0}, {123456790, 0, 0}}), {}), 1);
}

TEST(PcdRoundingOfShift, ALossWithinTheInputsStepIsNone) {
    EXPECT_EQ(PcdRounding::ofShift(surveyOf({{123456788.5, 0, 0}, {123456790, 0, 0}}),
                                   Geom::PhysicalSpace::vector{10, 10, 10}),
              0);
}

} // namespace
} // namespace Tidewatch
