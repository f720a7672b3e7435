// SPDX-License-Identifier: Apache-2.0
#include "pcd/PointShading.hpp"

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

#include <gtest/gtest.h>

namespace {

using ExportLib::PointShading;

constexpr float darkest = 0.0F;
constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

std::uint32_t packed(int red, int green, int blue) {
    return static_cast<std::uint32_t>(red) << 16 | static_cast<std::uint32_t>(green) << 8 |
           static_cast<std::uint32_t>(blue);
}

std::uint32_t colorBits(const PointShading& shading, double height, float intensity) {
    return std::bit_cast<std::uint32_t>(shading.color(height, intensity));
}

TEST(PointShading, RampRunsFromBlueOverYellowToGreen) {
    const PointShading shading({0.0, 1.0}, 0, 100);
    EXPECT_EQ(colorBits(shading, -1.0, darkest), packed(0, 0, 127));
    EXPECT_EQ(colorBits(shading, 0.0, darkest), packed(0, 0, 127));
    EXPECT_EQ(colorBits(shading, 0.25, darkest), packed(63, 63, 64));
    EXPECT_EQ(colorBits(shading, 0.5, darkest), packed(127, 127, 0));
    EXPECT_EQ(colorBits(shading, 0.75, darkest), packed(64, 127, 0));
    EXPECT_EQ(colorBits(shading, 1.0, darkest), packed(0, 127, 0));
    EXPECT_EQ(colorBits(shading, 7.0, darkest), packed(0, 127, 0));
}

TEST(PointShading, GreyLevelOfTheIntensityIsMixedIn) {
    const PointShading shading({0.0, 1.0}, 10, 110);
    EXPECT_EQ(shading.intensity(10), 0.0F);
    EXPECT_EQ(shading.intensity(110), 1.0F);
    EXPECT_EQ(colorBits(shading, 1.0, 1.0F), packed(127, 255, 127));
    EXPECT_EQ(colorBits(shading, 1.0, 0.5F), packed(63, 191, 63));
}

TEST(PointShading, IntensityMultipliesByAReciprocalInSinglePrecision) {
    // 1/41 rounds such that 41 of it are not one: a division would give exactly 1.
    int differs = 0;
    for (int range = 1; range <= 65535; ++range) {
        const PointShading shading({0.0, 1.0}, 0, static_cast<unsigned short>(range));
        const float reciprocal = 1.0F / static_cast<float>(range);
        const float full = shading.intensity(static_cast<unsigned short>(range));
        EXPECT_EQ(full, static_cast<float>(range) * reciprocal);
        differs += full != 1.0F ? 1 : 0;
    }
    EXPECT_GT(differs, 0);
}

TEST(PointShading, AllIntensitiesEqualAreNotANumberAndGreyLevelZero) {
    const PointShading shading({0.0, 1.0}, 500, 500);
    EXPECT_TRUE(std::isnan(shading.intensity(500)));
    EXPECT_EQ(colorBits(shading, 1.0, shading.intensity(500)), packed(0, 127, 0));
}

TEST(PointShading, EqualHeightsTakeTheFirstBranchForEveryPoint) {
    // As in a cloud of fewer than 20 points: both heights are the lowest one, and the scale is infinite.
    const PointShading shading({3.0, 3.0}, 0, 1);
    EXPECT_EQ(colorBits(shading, 3.0, darkest), packed(0, 127, 0));
    EXPECT_EQ(colorBits(shading, 4.0, darkest), packed(0, 127, 0));
}

TEST(PointShading, HeightsThatAreNoNumbersHaveAColor) {
    const PointShading shading({0.0, 1.0}, 0, 1);
    EXPECT_EQ(colorBits(shading, nan, darkest), packed(0, 127, 0));
    EXPECT_EQ(colorBits(shading, infinity, darkest), packed(0, 127, 0));
    EXPECT_EQ(colorBits(shading, -infinity, darkest), packed(0, 0, 127));
    EXPECT_EQ(colorBits(PointShading({nan, nan}, 0, 1), 5.0, darkest), packed(0, 127, 0));
}

TEST(PointShading, RandomHeightsAndIntensitiesGiveTheFormulasColor) {
    std::mt19937_64 random(7);
    std::uniform_real_distribution<double> heights(-3.0, 9.0);
    std::uniform_int_distribution<int> intensities(100, 40000);
    const double low = -1.25;
    const double high = 6.5;
    const PointShading shading({low, high}, 100, 40000);
    for (int round = 0; round < 100000; ++round) {
        const double z = heights(random);
        const auto value = static_cast<unsigned short>(intensities(random));
        const double t = (z - low) * (1 / (high - low));
        int r = 0;
        int g = 0;
        int b = 0;
        if (t >= 1) {
            g = 255;
        } else if (t <= 0) {
            b = 255;
        } else if (t < 0.5) {
            r = g = static_cast<int>(510 * t);
            b = 255 - g;
        } else {
            g = 255;
            r = t > 0.5 ? 255 - static_cast<int>((t - 0.5) * 510) : 255;
        }
        const float f = static_cast<float>(value - 100) * (1.0F / 39900.0F);
        const int q = static_cast<int>(static_cast<double>(f) * 255);
        ASSERT_EQ(shading.intensity(value), f);
        ASSERT_EQ(colorBits(shading, z, f), packed((r + q) / 2, (g + q) / 2, (b + q) / 2))
            << z << " " << value;
    }
}

} // namespace
