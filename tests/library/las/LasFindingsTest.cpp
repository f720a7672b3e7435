// SPDX-License-Identifier: Apache-2.0
#include "library/las/LasFindings.hpp"

#include "library/las/LasColumnsBuilder.hpp"

#include <cmath>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using Support::Points;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

class LasFindingsTest : public ::testing::Test {
protected:
    LasFindingsTest() { mapping.hasReflectance = mapping.hasAmplitude = true; }

    LasFindings& look(const LasColumnsBuilder& builder, std::uint64_t points) {
        findings.look(builder.columns(), points, axes, mapping, settings);
        return findings;
    }
    template <class T>
    LasFindings& look(const std::string& attribute, std::vector<T> values) {
        const std::uint64_t points = values.size();
        return look(LasColumnsBuilder().with(attribute, std::move(values)), points);
    }

    LasAxes axes{{{0, 0.00025}, {0, 0.00025}, {0, 0.00025}}};
    LasMapping mapping;
    LasSettings settings;
    LasFindings findings;
};

TEST_F(LasFindingsTest, NothingIsFoundInPointsThatFit) {
    look(LasColumnsBuilder()
             .with("Positions", Points{{1, -2, 0.25}, {0.5, 7, -0.00025}})
             .with("Classification", std::vector<unsigned char>{31, 255})
             .with("ReturnNumber", std::vector<unsigned char>{0, 15})
             .with("NumberOfReturns", std::vector<unsigned char>{15, 1})
             .with("EdgeOfFlightLine", std::vector<unsigned char>{0, 1})
             .with("ScanDirectionFlag", std::vector<unsigned char>{1, 0})
             .with("ScanAngleRank", std::vector<short>{-15000, 3})
             .with("Intensity", std::vector<unsigned short>{0, 65535}),
         2);
    EXPECT_EQ(findings.points, 2U);
    EXPECT_EQ(findings.survey.points(), 2U);
    EXPECT_FALSE(findings.stray);
    for (const double rounding : findings.rounding)
        EXPECT_LT(rounding, 1e-15);
    EXPECT_EQ(findings.highClasses + findings.highReturns + findings.wideFlags + findings.fineAngles +
                  findings.rawAngles + findings.wildAmplitudes + findings.wildReflectances +
                  findings.lateValues,
              0U);
    EXPECT_EQ(findings.supplies.at("Intensity").values, 2U);
    EXPECT_EQ(findings.supplies.at("Intensity").surplus, 0U);
}

TEST_F(LasFindingsTest, TheLargestRoundingOfEachAxisIsMeasured) {
    look("Positions", Points{{0.0001, 0.000125, 0}, {-0.00005, 0, 1.00011}});
    EXPECT_NEAR(findings.rounding[0], 0.0001, 1e-15);
    EXPECT_NEAR(findings.rounding[1], 0.000125, 1e-15);
    EXPECT_NEAR(findings.rounding[2], 0.00011, 1e-15);
}

TEST_F(LasFindingsTest, TheFirstCoordinateThatDoesNotFitIsKept) {
    const double highest = axes[1].highest();
    look("Positions", Points{{0, highest, axes[2].lowest()}});
    EXPECT_FALSE(findings.stray);
    look("Positions", Points{{0, 0, 0}, {0, std::nextafter(highest, infinity), 0}, {0, 9e9, 0}});
    ASSERT_TRUE(findings.stray);
    EXPECT_EQ(findings.stray->axis, 1U);
    EXPECT_EQ(findings.stray->value, std::nextafter(highest, infinity));
}

TEST_F(LasFindingsTest, WhatIsNoFiniteNumberDoesNotFit) {
    for (const double value : {nan, infinity, -infinity}) {
        LasFindings fresh;
        fresh.look(LasColumnsBuilder().with("Positions", Points{{0, 0, value}}).columns(), 1, axes, mapping,
                   settings);
        ASSERT_TRUE(fresh.stray);
        EXPECT_EQ(fresh.stray->axis, 2U);
    }
}

TEST_F(LasFindingsTest, ClassesAreLimitedInOldVersionsOnly) {
    look("Classification", std::vector<unsigned char>{31, 32, 255});
    EXPECT_EQ(findings.highClasses, 0U);
    settings.version = 2;
    EXPECT_EQ(look("Classification", std::vector<unsigned char>{31, 32, 255}).highClasses, 2U);
}

TEST_F(LasFindingsTest, APointCountsOnceForItsReturnNumbers) {
    const auto returns = LasColumnsBuilder()
                             .with("ReturnNumber", std::vector<unsigned char>{7, 8, 16, 16})
                             .with("NumberOfReturns", std::vector<unsigned char>{7, 7, 15, 16, 99});
    EXPECT_EQ(look(returns, 5).highReturns, 3U);
    settings.version = 3;
    findings = {};
    EXPECT_EQ(look(returns, 5).highReturns, 4U);
}

TEST_F(LasFindingsTest, FlagsAboveOneAreCounted) {
    look(LasColumnsBuilder()
             .with("EdgeOfFlightLine", std::vector<unsigned char>{0, 1, 2, 255})
             .with("ScanDirectionFlag", std::vector<unsigned char>{3}),
         4);
    EXPECT_EQ(findings.wideFlags, 3U);
}

TEST_F(LasFindingsTest, AnglesAreJudgedByTheVersion) {
    look("ScanAngleRank", std::vector<signed char>{0, -1, 90});
    EXPECT_EQ(findings.rawAngles, 2U);
    look("ScanAngleRank", std::vector<short>{1});
    EXPECT_EQ(findings.fineAngles, 0U);
    settings.version = 2;
    findings = {};
    look("ScanAngleRank", std::vector<signed char>{-1});
    look("ScanAngleRank", std::vector<short>{0, 0, 5});
    EXPECT_EQ(findings.rawAngles, 0U);
    EXPECT_EQ(findings.fineAngles, 1U);
}

TEST_F(LasFindingsTest, ReflectancesWrapOutsideOfTheirRangeAndAreRoundedInside) {
    constexpr float quiet = std::numeric_limits<float>::quiet_NaN();
    look("Reflectance", std::vector<float>{-25.0F, 5.0F, 5.006F, -25.01F, 6.0F, quiet});
    EXPECT_EQ(findings.wildReflectances, 3U);
    EXPECT_EQ(findings.lateValues, 6U);
    EXPECT_GT(findings.reflectanceRounding, 1e-5);
    EXPECT_LT(findings.reflectanceRounding, 0.5 / 2184 + 1e-5);
    findings = {};
    look("Reflectance", std::vector<float>{static_cast<float>(-25 + 1000 / 2184.0)});
    EXPECT_LT(findings.reflectanceRounding, 2e-6);
    mapping.hasReflectance = false;
    findings = {};
    EXPECT_EQ(look("Reflectance", std::vector<float>{9}).wildReflectances, 0U);
}

TEST_F(LasFindingsTest, AmplitudesWrapOutsideOfTheirRangeAndLoseFractions) {
    look("Amplitude", std::vector<float>{0, 65535.75F, -0.5F, -1.0F, 65536.0F});
    EXPECT_EQ(findings.wildAmplitudes, 2U);
    EXPECT_DOUBLE_EQ(findings.amplitudeRounding, 0.75);
    findings = {};
    look("Amplitude", std::vector<unsigned short>{0, 65535});
    EXPECT_EQ(findings.wildAmplitudes, 0U);
    EXPECT_EQ(findings.lateValues, 2U);
}

TEST_F(LasFindingsTest, ValuesWithoutAPointAndPointsWithoutAValueAreCounted) {
    look(LasColumnsBuilder()
             .with("Positions", Points{{1, 2, 3}, {4, 5, 6}})
             .with("Intensity", std::vector<unsigned short>{1})
             .with("Classification", std::vector<unsigned char>{1, 2, 3, 4, 5}),
         2);
    look("Positions", Points{{1, 2, 3}});
    EXPECT_EQ(findings.points, 3U);
    EXPECT_EQ(findings.supplies.at("Intensity").values, 1U);
    EXPECT_EQ(findings.supplies.at("Classification").values, 2U);
    EXPECT_EQ(findings.supplies.at("Classification").surplus, 3U);
    EXPECT_EQ(findings.supplies.at("Positions").values, 3U);
}

} // namespace
} // namespace Tidewatch
