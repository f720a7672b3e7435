// SPDX-License-Identifier: Apache-2.0
#include "las/lasValues.hpp"

#include <bit>
#include <cstdlib>
#include <limits>
#include <random>

#include <gtest/gtest.h>

namespace {

using namespace ExportLib;

constexpr double step = 0.00025;
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

std::int32_t quantized(double coordinate, double offset, double scale) {
    return quantizedSteps(stepsFromOffset(coordinate, offset, scale));
}

TEST(LasValues, CoordinatesAreRoundedHalfAwayFromZero) {
    EXPECT_EQ(quantized(2.0, 2.0, step), 0);
    EXPECT_EQ(quantized(3.0, 2.0, step), 4000);
    EXPECT_EQ(quantized(1.0, 2.0, step), -4000);
    EXPECT_EQ(quantized(0.5, 0.0, 1.0), 1);
    EXPECT_EQ(quantized(-0.5, 0.0, 1.0), -1);
    EXPECT_EQ(quantized(-0.0, 0.0, 1.0), 0);
}

TEST(LasValues, CoordinatesAreDividedByTheStepNotMultipliedByItsReciprocal) {
    EXPECT_EQ(quantized(2.499875, 2.0, step), 1999);
}

TEST(LasValues, CoordinatesFollowTheRuleWrittenOut) {
    std::mt19937_64 random(3);
    std::uniform_real_distribution<double> anywhere(-500000.0, 500000.0);
    for (int i = 0; i < 200000; ++i) {
        const double offset = std::floor(anywhere(random));
        // Half of them exactly between two steps, as far as a double can be.
        const double coordinate =
            i % 2 == 0 ? anywhere(random) : offset + (static_cast<double>(i % 4001) - 2000.5) * step;
        const double d = (coordinate - offset) / step;
        if (std::abs(d) >= 2147483647.0)
            continue;
        const auto expected =
            coordinate >= offset ? static_cast<std::int32_t>(d + 0.5) : static_cast<std::int32_t>(d - 0.5);
        ASSERT_EQ(quantized(coordinate, offset, step), expected) << coordinate << " at " << offset;
    }
}

TEST(LasValues, CoordinatesBeyond32BitsKeepTheirLowBits) {
    EXPECT_EQ(quantized(2147483647.0, 0.0, 1.0), 2147483647);
    EXPECT_EQ(quantized(2147483648.0, 0.0, 1.0), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(quantized(-2147483648.0, 0.0, 1.0), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(quantized(-2147483649.0, 0.0, 1.0), 2147483647);
    EXPECT_EQ(quantized(4294967296.0 + 12.0, 0.0, 1.0), 12);
    EXPECT_EQ(quantized(-4294967296.0 - 12.0, 0.0, 1.0), -12);
}

TEST(LasValues, CoordinatesThatAreNoNumbersOrBeyond64BitsAreZero) {
    EXPECT_EQ(quantized(nan, 0.0, step), 0);
    EXPECT_EQ(quantized(1.0, nan, step), 0);
    EXPECT_EQ(quantized(infinity, 0.0, step), 0);
    EXPECT_EQ(quantized(-infinity, 0.0, step), 0);
    EXPECT_EQ(quantized(1e300, 0.0, step), 0);
    EXPECT_EQ(quantized(9223372036854775808.0, 0.0, 1.0), 0);
    EXPECT_EQ(quantized(-9223372036854775808.0, 0.0, 1.0), 0);
}

TEST(LasValues, ReflectanceMinus25IsZeroAnd5Is65520) {
    EXPECT_EQ(rawReflectance(-25.0F), 0);
    EXPECT_EQ(rawReflectance(5.0F), 65520);
    EXPECT_EQ(rawReflectance(0.0F), 54600);
    EXPECT_EQ(rawReflectance(-25.0002F), 0);
}

TEST(LasValues, ReflectanceBeyond16BitsWraps) {
    EXPECT_EQ(rawReflectance(5.01F), 65542 - 65536);
    EXPECT_EQ(rawReflectance(-30.0F), 0xD558);
}

TEST(LasValues, ReflectanceIsRoundedAsRoundDoes) {
    std::mt19937_64 random(4);
    int compared = 0;
    for (int i = 0; i < 500000; ++i) {
        const float value = std::bit_cast<float>(static_cast<std::uint32_t>(random()));
        const float scaled = (value + 25.0F) * 2184.0F;
        if (!(std::abs(scaled) < 2147483648.0F))
            continue;
        ++compared;
        ASSERT_EQ(rawReflectance(value),
                  static_cast<std::uint16_t>(static_cast<std::int32_t>(std::round(scaled))))
            << value;
    }
    EXPECT_GT(compared, 100000);
}

TEST(LasValues, ReflectanceThatIsNoNumberOrBeyond32BitsIsZero) {
    constexpr float most = std::numeric_limits<float>::max();
    for (const float value : {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                              -std::numeric_limits<float>::infinity(), most, -most, 1e7F, -1e7F})
        EXPECT_EQ(rawReflectance(value), 0) << value;
}

TEST(LasValues, AmplitudeIsTruncatedTowardsZeroAndWraps) {
    EXPECT_EQ(rawAmplitude(3.99F), 3);
    EXPECT_EQ(rawAmplitude(-0.99F), 0);
    EXPECT_EQ(rawAmplitude(-1.0F), 65535);
    EXPECT_EQ(rawAmplitude(65535.5F), 65535);
    EXPECT_EQ(rawAmplitude(65536.0F), 0);
    EXPECT_EQ(rawAmplitude(70000.0F), 70000 - 65536);
    EXPECT_EQ(rawAmplitude(std::numeric_limits<float>::quiet_NaN()), 0);
    EXPECT_EQ(rawAmplitude(3e9F), 0);
}

} // namespace
