// SPDX-License-Identifier: Apache-2.0
#include "pcd/heightQuantiles.hpp"

#include "support/ThreadWorkers.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace {

using ExportLib::HeightQuantiles;
using ExportLib::heightQuantiles;
using Points = std::vector<Geom::PhysicalSpace::point>;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

Points pointsAt(const std::vector<double>& heights) {
    Points points;
    for (const double z : heights)
        points.push_back({1.0, 2.0, z});
    return points;
}

/// The same by sorting everything.
HeightQuantiles bySorting(std::vector<double> heights) {
    std::sort(heights.begin(), heights.end(), [](double a, double b) {
        return std::isnan(a) || std::isnan(b) ? !std::isnan(a) && std::isnan(b) : a < b;
    });
    const std::size_t k = heights.size() / 20;
    return {heights[k], heights[19 * k]};
}

void expectSame(double actual, double expected) {
    if (std::isnan(expected))
        EXPECT_TRUE(std::isnan(actual)) << actual;
    else
        EXPECT_EQ(actual, expected);
}

TEST(HeightQuantiles, NoPointsGiveZeros) {
    EXPECT_EQ(heightQuantiles({}).low, 0.0);
    EXPECT_EQ(heightQuantiles({}).high, 0.0);
}

TEST(HeightQuantiles, FewerThanTwentyPointsGiveTheLowestHeightTwice) {
    const HeightQuantiles heights =
        heightQuantiles(pointsAt({5, -3, 8, 7, 9, 2, 3, 1, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4}));
    EXPECT_EQ(heights.low, -3.0);
    EXPECT_EQ(heights.high, -3.0);
}

TEST(HeightQuantiles, TwentyPointsGiveTheSecondAndTheLastEntry) {
    std::vector<double> z;
    for (int i = 0; i < 20; ++i)
        z.push_back((i * 7) % 20);
    EXPECT_EQ(heightQuantiles(pointsAt(z)).low, 1.0);
    EXPECT_EQ(heightQuantiles(pointsAt(z)).high, 19.0);
}

TEST(HeightQuantiles, HighEntryIsNineteenTimesTheRoundedTwentieth) {
    std::vector<double> z;
    for (int i = 0; i < 59; ++i)
        z.push_back(i);
    EXPECT_EQ(heightQuantiles(pointsAt(z)).low, 2.0);
    EXPECT_EQ(heightQuantiles(pointsAt(z)).high, 38.0);
}

TEST(HeightQuantiles, AllHeightsNotANumberGiveNotANumber) {
    const HeightQuantiles heights = heightQuantiles(pointsAt(std::vector<double>(40, nan)));
    EXPECT_TRUE(std::isnan(heights.low));
    EXPECT_TRUE(std::isnan(heights.high));
}

TEST(HeightQuantiles, RandomHeightsGiveWhatSortingGives) {
    std::mt19937_64 random(5);
    for (int round = 0; round < 2000; ++round) {
        std::vector<double> z(1 + random() % 400);
        const auto kinds = 1 + random() % 50;
        for (double& height : z) {
            switch (random() % kinds) {
            case 0:
                height = static_cast<double>(random() % 5);
                break;
            case 1:
                height = nan;
                break;
            case 2:
                height = random() % 2 == 0 ? infinity : -infinity;
                break;
            default:
                height = static_cast<double>(random() % 100000) * 0.01 - 500.0;
            }
        }
        const HeightQuantiles expected = bySorting(z);
        const HeightQuantiles actual = heightQuantiles(pointsAt(z));
        expectSame(actual.low, expected.low);
        expectSame(actual.high, expected.high);
    }
}

TEST(HeightQuantiles, WorkersChangeNothing) {
    std::mt19937_64 random(6);
    for (const std::size_t count : {65'535U, 65'537U, 300'000U, 600'000U}) {
        for (const double outlier : {0.0, 1e300, infinity, nan}) {
            std::vector<double> z(count);
            for (double& height : z)
                height = random() % 1000 == 0 ? outlier : static_cast<double>(random() % 100'000) * 0.01;
            const HeightQuantiles expected = bySorting(z);
            for (const unsigned threads : {1U, 2U, 16U}) {
                Support::ThreadWorkers workers(threads);
                const HeightQuantiles actual = heightQuantiles(pointsAt(z), {}, &workers);
                EXPECT_EQ(actual.low, expected.low) << count << ' ' << outlier << ' ' << threads;
                EXPECT_EQ(actual.high, expected.high) << count << ' ' << outlier << ' ' << threads;
            }
        }
    }
}

TEST(HeightQuantiles, QuestionIsAskedThroughoutAndChangesNothing) {
    std::mt19937_64 random(5);
    std::vector<double> z(2'000'000);
    for (double& height : z)
        height = static_cast<double>(random() % 100'000) * 0.01;
    const auto points = pointsAt(z);
    std::size_t asked = 0;
    const HeightQuantiles answered = heightQuantiles(points, [&] { ++asked; });
    const HeightQuantiles expected = heightQuantiles(points);
    EXPECT_EQ(answered.low, expected.low);
    EXPECT_EQ(answered.high, expected.high);
    // For each block: while the range is found, and while the heights of either quantile are gathered.
    EXPECT_GE(asked, 3 * (z.size() / ConvLib::BasicConverterDefs::stopInterval));
}

} // namespace
