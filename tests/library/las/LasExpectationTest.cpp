// SPDX-License-Identifier: Apache-2.0
#include "library/las/LasExpectation.hpp"

#include "library/las/LasColumnsBuilder.hpp"

#include <limits>
#include <random>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using Support::Points;
using ::testing::ElementsAre;

class LasExpectationTest : public ::testing::Test {
protected:
    [[nodiscard]] LasExpectation start() const { return {plan, settings, {10, 20, -30}}; }
    /// What a member has in the first points of a fragment.
    template <class Member>
    [[nodiscard]] std::vector<int> values(const LasColumnsBuilder& builder, std::size_t points,
                                          Member LasPoint::*member) const {
        LasExpectation expectation = start();
        expectation.take(builder.columns());
        std::vector<int> list;
        for (std::size_t i = 0; i < points; ++i)
            list.push_back(static_cast<int>(expectation.point(i).*member));
        return list;
    }

    ExportLib::LasPlan plan;
    ExportLib::LasSettings settings;
};

TEST_F(LasExpectationTest, WithoutFieldsAPointIsTheOnlyReturnAtTheOffsets) {
    LasExpectation expectation = start();
    expectation.take({});
    const LasPoint& point = expectation.point(0);
    EXPECT_EQ(point.position.x, 10);
    EXPECT_EQ(point.position.z, -30);
    EXPECT_EQ(point.returnNumber, 1);
    EXPECT_EQ(point.numberOfReturns, 1);
    EXPECT_EQ(point.intensity + point.classification + point.scanAngle + point.pointSourceID, 0);
}

TEST_F(LasExpectationTest, AValueStaysUntilTheNextOne) {
    LasExpectation expectation = start();
    expectation.take(LasColumnsBuilder()
                         .with("Positions", Points{{1, 2, 3}, {4, 5, 6}})
                         .with("Intensity", std::vector<unsigned short>{7})
                         .columns());
    EXPECT_EQ(expectation.point(0).intensity, 7);
    EXPECT_EQ(expectation.point(1).intensity, 7);
    EXPECT_EQ(expectation.point(1).position.y, 5);
    expectation.take(LasColumnsBuilder().with("UserData", std::vector<unsigned char>{9}).columns());
    EXPECT_EQ(expectation.point(0).intensity, 7);
    EXPECT_EQ(expectation.point(0).userData, 9);
}

TEST_F(LasExpectationTest, ValuesAreCutToTheBitsOfTheirFields) {
    const auto classes = LasColumnsBuilder().with("Classification", std::vector<unsigned char>{31, 32, 255});
    const auto returns =
        LasColumnsBuilder().with("ReturnNumber", std::vector<unsigned char>{0, 7, 8, 15, 16});
    EXPECT_THAT(values(classes, 3, &LasPoint::classification), ElementsAre(31, 32, 255));
    EXPECT_THAT(values(returns, 5, &LasPoint::returnNumber), ElementsAre(0, 7, 8, 15, 15));
    settings.version = 3;
    EXPECT_THAT(values(classes, 3, &LasPoint::classification), ElementsAre(31, 0, 31));
    EXPECT_THAT(values(returns, 5, &LasPoint::returnNumber), ElementsAre(0, 7, 7, 7, 7));
    const auto flags = LasColumnsBuilder().with("EdgeOfFlightLine", std::vector<unsigned char>{0, 1, 2, 3});
    EXPECT_THAT(values(flags, 4, &LasPoint::edgeOfFlightLine), ElementsAre(0, 1, 0, 1));
}

TEST_F(LasExpectationTest, WholeDegreesWinAndFineAnglesNeedTheNewVersion) {
    const auto both = LasColumnsBuilder()
                          .with("ScanAngleRank", std::vector<short>{1000, 2000})
                          .with("ScanAngleRank", std::vector<signed char>{-5});
    EXPECT_THAT(values(both, 2, &LasPoint::scanAngle), ElementsAre(-5, 2000));
    settings.version = 2;
    EXPECT_THAT(values(both, 2, &LasPoint::scanAngle), ElementsAre(-5, -5));
}

TEST_F(LasExpectationTest, AFixedSourceReplacesThatOfThePoints) {
    const auto sources = LasColumnsBuilder().with("PointSourceID", std::vector<unsigned short>{1, 2});
    EXPECT_THAT(values(sources, 2, &LasPoint::pointSourceID), ElementsAre(1, 2));
    settings.pointSourceID = 3;
    EXPECT_THAT(values(sources, 2, &LasPoint::pointSourceID), ElementsAre(3, 3));
}

TEST_F(LasExpectationTest, ReflectanceAndAmplitudeComeOnePointLate) {
    plan.hasReflectance = plan.hasAmplitude = true;
    constexpr float quiet = std::numeric_limits<float>::quiet_NaN();
    const auto late = LasColumnsBuilder()
                          .with("Reflectance", std::vector<float>{5, -25, 5.01F, quiet, 1e30F, 0})
                          .with("Amplitude", std::vector<float>{1.9F, 65537, -1, quiet, 3e9F, 4});
    EXPECT_THAT(values(late, 7, &LasPoint::reflectance), ElementsAre(0, 65520, 0, 6, 0, 0, 54600));
    EXPECT_THAT(values(late, 7, &LasPoint::amplitude), ElementsAre(0, 1, 1, 65535, 0, 0, 4));

    LasExpectation expectation = start();
    expectation.take(LasColumnsBuilder().with("Amplitude", std::vector<unsigned short>{8}).columns());
    (void)expectation.point(0);
    expectation.take(LasColumnsBuilder().with("Amplitude", std::vector<unsigned short>{9}).columns());
    EXPECT_EQ(expectation.point(0).amplitude, 8);
}

TEST_F(LasExpectationTest, WithoutRoomInTheFileThereAreNoLateValues) {
    const auto late = LasColumnsBuilder().with("Reflectance", std::vector<float>{5, 5});
    EXPECT_THAT(values(late, 2, &LasPoint::reflectance), ElementsAre(0, 0));
}

TEST_F(LasExpectationTest, SkippingLeavesWhatThePointsSkippedWouldHaveLeft) {
    std::mt19937 random(5);
    const auto upTo = [&](std::size_t most) { return random() % (most + 1); };
    constexpr std::size_t points = 60;
    const auto list = [&](auto zero) {
        std::vector<decltype(zero)> values(upTo(3) == 0 ? points : upTo(points));
        for (auto& value : values)
            value = static_cast<decltype(zero)>(random() % 100);
        return values;
    };
    for (int round = 0; round < 500; ++round) {
        settings.version = 2 + round % 3;
        settings.conforming = random() % 2 == 0;
        plan.hasReflectance = plan.hasAmplitude = random() % 4 != 0;
        LasExpectation plain = start();
        LasExpectation skipping = start();
        for (int fragment = 0; fragment < 3; ++fragment) {
            LasColumnsBuilder builder;
            Points positions(upTo(points));
            for (auto& position : positions)
                position.x = static_cast<double>(random());
            builder.with("Positions", positions);
            for (const char* const name : {"Classification", "ReturnNumber", "UserData"}) {
                if (random() % 2 == 0)
                    builder.with(name, list(static_cast<unsigned char>(0)));
            }
            for (const char* const name : {"Intensity", "Amplitude"}) {
                if (random() % 2 == 0)
                    builder.with(name, list(static_cast<unsigned short>(0)));
            }
            for (const char* const name : {"Reflectance", "Amplitude"}) {
                if (random() % 2 == 0)
                    builder.with(name, list(0.0F));
            }
            if (random() % 2 == 0)
                builder.with("ScanAngleRank", list(static_cast<short>(0)));
            if (random() % 2 == 0)
                builder.with("ScanAngleRank", list(static_cast<signed char>(0)));
            plain.take(builder.columns());
            skipping.take(builder.columns());
            const std::size_t first = upTo(points);
            const std::size_t last = first + upTo(points - first);
            skipping.skipTo(first);
            for (std::size_t i = 0; i < points; ++i) {
                const LasPoint& expected = plain.point(i);
                if (i >= first && i < last) {
                    EXPECT_EQ(skipping.point(i), expected) << round << " " << i;
                }
            }
            skipping.skipTo(points);
        }
        skipping.take({});
        plain.take({});
        EXPECT_EQ(skipping.point(0), plain.point(0)) << round;
    }
}

} // namespace
} // namespace Tidewatch
