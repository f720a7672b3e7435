// SPDX-License-Identifier: Apache-2.0
#include "library/export/CoordinateSurvey.hpp"

#include <cmath>
#include <limits>
#include <random>
#include <span>
#include <vector>

#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using Points = std::vector<Geom::PhysicalSpace::point>;

TEST(CoordinateSurvey, KnowsNothingBeforeItLooks) {
    const CoordinateSurvey survey;
    EXPECT_EQ(survey.points(), 0U);
    EXPECT_FALSE(survey.axis(0));
}

TEST(CoordinateSurvey, FindsRangeAndStepOfEachAxis) {
    CoordinateSurvey survey;
    survey.look(Points{{1, 10.5, -0.001}, {3, -2.25, 0.002}});
    EXPECT_EQ(survey.points(), 2U);
    EXPECT_EQ(survey.axis(0)->lower, 1);
    EXPECT_EQ(survey.axis(0)->upper, 3);
    EXPECT_EQ(survey.axis(0)->decimalStep, 1);
    EXPECT_EQ(survey.axis(1)->lower, -2.25);
    EXPECT_EQ(survey.axis(1)->decimalStep, 0.01);
    EXPECT_EQ(survey.axis(2)->decimalStep, 0.001);
}

TEST(CoordinateSurvey, PiecesCountAsOneCloud) {
    CoordinateSurvey survey;
    survey.look(Points{{1, 0, 0}});
    survey.look(Points{});
    survey.look(Points{{-5.5, 0, 0}});
    EXPECT_EQ(survey.points(), 2U);
    EXPECT_EQ(survey.axis(0)->lower, -5.5);
    EXPECT_EQ(survey.axis(0)->upper, 1);
    EXPECT_EQ(survey.axis(0)->decimalStep, 0.1);
}

TEST(CoordinateSurvey, ScaledIntegersWithALargeOffsetKeepTheirStep) {
    // As LAS readers compute coordinates: each value is rounded, and values near zero come from large terms.
    std::mt19937 random(7);
    std::uniform_int_distribution<int> stored(-100'000'000, 100'000'000);
    for (const double scale : {0.1, 0.01, 0.001, 0.0001}) {
        Points points;
        for (int number = 0; number < 2000; ++number)
            points.push_back({stored(random) * scale + 637000.0, stored(random) * scale - 4851000.0, 0});
        CoordinateSurvey survey;
        survey.look(points);
        EXPECT_EQ(survey.axis(0)->decimalStep, scale);
        EXPECT_EQ(survey.axis(1)->decimalStep, scale);
    }
}

TEST(CoordinateSurvey, FreeNumbersHaveNoStep) {
    std::mt19937_64 random(11);
    std::uniform_real_distribution<double> free(-1, 1);
    Points points;
    for (int number = 0; number < 100; ++number)
        points.push_back({free(random), free(random) * 1e5, free(random) * 1e-5});
    CoordinateSurvey survey;
    survey.look(points);
    EXPECT_FALSE(survey.axis(0)->decimalStep);
    EXPECT_FALSE(survey.axis(1)->decimalStep);
    EXPECT_FALSE(survey.axis(2)->decimalStep);
}

TEST(CoordinateSurvey, TheFinestStepIsABillionth) {
    CoordinateSurvey survey;
    survey.look(Points{{1e-9, 1e-10, 0.123456789}});
    EXPECT_EQ(survey.axis(0)->decimalStep, 1e-9);
    EXPECT_FALSE(survey.axis(1)->decimalStep);
    EXPECT_EQ(survey.axis(2)->decimalStep, 1e-9);
}

TEST(CoordinateSurvey, CoordinatesThatAreNotFiniteTellNothing) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    CoordinateSurvey survey;
    survey.look(Points{{nan, infinity, 0.5}, {2, -infinity, nan}});
    EXPECT_EQ(survey.points(), 2U);
    EXPECT_EQ(survey.axis(0)->lower, 2);
    EXPECT_EQ(survey.axis(0)->upper, 2);
    EXPECT_FALSE(survey.axis(1));
    EXPECT_EQ(survey.axis(2)->decimalStep, 0.1);
}

TEST(CoordinateSurvey, HugeCoordinatesAreWholeNumbers) {
    CoordinateSurvey survey;
    survey.look(Points{{1e300, std::numeric_limits<double>::max(), std::numeric_limits<double>::lowest()}});
    EXPECT_EQ(survey.axis(0)->decimalStep, 1);
    EXPECT_TRUE(survey.axis(1));
    EXPECT_TRUE(survey.axis(2));
}

TEST(CoordinateSurvey, FloatsOfDecimalNumbersHaveTheirStep) {
    Points points;
    for (int hundredth = 40'000; hundredth < 41'000; ++hundredth)
        points.push_back({static_cast<double>(static_cast<float>(hundredth / 100.0)), hundredth / 100.0, 0});
    CoordinateSurvey survey;
    survey.look(std::span(points).first(7));
    survey.look(std::span(points).subspan(7));
    EXPECT_TRUE(survey.axis(0)->areFloats);
    EXPECT_EQ(survey.axis(0)->decimalStep, 0.01);
    EXPECT_EQ(survey.axis(0)->stepToKeep(0), 0.01);
    EXPECT_FALSE(survey.axis(1)->areFloats);
    EXPECT_EQ(survey.axis(1)->decimalStep, 0.01);
    // Doubles are looked at first.
    EXPECT_FALSE(survey.axis(2)->areFloats);
    EXPECT_EQ(survey.axis(2)->decimalStep, 1);

    survey.look(Points{{400.12, 0, 0}});
    EXPECT_FALSE(survey.axis(0)->areFloats);
    EXPECT_FALSE(survey.axis(0)->decimalStep);
}

TEST(CoordinateSurvey, FloatsAreNeverKnownBetterThanTheirResolution) {
    std::mt19937 random(13);
    std::uniform_real_distribution<float> heights(1, 500);
    Points points;
    for (int number = 0; number < 1000; ++number)
        points.push_back({static_cast<double>(heights(random)), 0, 0});
    points.push_back({static_cast<double>(300.1F), 0, 0});
    CoordinateSurvey survey;
    survey.look(points);
    ASSERT_TRUE(survey.axis(0)->areFloats);
    EXPECT_EQ(survey.axis(0)->stepToKeep(0), std::ldexp(1.0, -15));
}

TEST(CoordinateSurvey, TheStepToKeepIsTheStatedOneElseTheDecimalOneElseTheResolution) {
    const CoordinateSurvey::Axis decimal{-4, 2, 0.5};
    EXPECT_EQ(decimal.stepToKeep(0.125), 0.125);
    EXPECT_EQ(decimal.stepToKeep(0), 0.5);
    const CoordinateSurvey::Axis none{-4, 2, std::nullopt};
    EXPECT_EQ(none.stepToKeep(0.125), 0.125);
    EXPECT_EQ(none.stepToKeep(0), std::ldexp(1.0, -50));
}

} // namespace
} // namespace Tidewatch
