// SPDX-License-Identifier: Apache-2.0
#include "library/view/chooseByCells.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using Points = std::vector<Geom::PhysicalSpace::point>;

Points scattered(std::size_t count, double size, unsigned seed, double offset = 0) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> place(0, size);
    Points points;
    for (std::size_t i = 0; i < count; ++i)
        points.push_back({offset + place(random), offset + place(random), 0});
    return points;
}

TEST(ChooseByCells, FewPointsAreAllChosenEachOnce) {
    const Points points = scattered(100, 10, 1);
    const auto chosen = chooseByCells(points, 100, {});
    EXPECT_EQ(std::set<std::uint32_t>(chosen.begin(), chosen.end()).size(), 100U);
    EXPECT_TRUE(chooseByCells({}, 5, {}).empty());
    EXPECT_TRUE(chooseByCells(points, 0, {}).empty());
}

TEST(ChooseByCells, AsManyAreChosenAsAreWanted) {
    const Points points = scattered(20'000, 1000, 2);
    for (const std::uint64_t wanted : {1U, 7U, 64U, 1000U, 9999U, 19'999U}) {
        const auto chosen = chooseByCells(points, wanted, {});
        EXPECT_EQ(std::set<std::uint32_t>(chosen.begin(), chosen.end()).size(), chosen.size());
        EXPECT_LE(chosen.size(), wanted);
        EXPECT_GE(chosen.size() + 2, wanted);
    }
}

TEST(ChooseByCells, SparsePlacesKeepMoreOfTheirPointsThanDenseOnes) {
    // A dense corner and the wide rest.
    Points points = scattered(50'000, 100, 3);
    const Points rest = scattered(2'000, 1000, 4);
    points.insert(points.end(), rest.begin(), rest.end());
    const auto chosen = chooseByCells(points, 3'000, {});
    const auto ofRest =
        std::count_if(chosen.begin(), chosen.end(), [](std::uint32_t i) { return i >= 50'000; });
    // A draw by lot would keep about 115 of them.
    EXPECT_GT(ofRest, 1'200);
}

TEST(ChooseByCells, ChosenPointsLieInAllPartsOfThePlace) {
    const Points points = scattered(30'000, 1024, 5);
    std::set<int> parts;
    for (const std::uint32_t i : chooseByCells(points, 1'500, {}))
        parts.insert(static_cast<int>(points[i].x / 64) * 16 + static_cast<int>(points[i].y / 64));
    EXPECT_EQ(parts.size(), 256U);
}

TEST(ChooseByCells, MarkedPointsAreChosenInAnyCase) {
    const Points points = scattered(10'000, 1000, 6);
    std::vector<bool> kept(points.size());
    for (std::size_t i = 0; i < 50; ++i)
        kept[i * 17] = true;
    const auto chosen = chooseByCells(points, 200, kept);
    EXPECT_LE(chosen.size(), 200U);
    for (std::uint32_t i = 0; i < 50; ++i)
        EXPECT_NE(std::find(chosen.begin(), chosen.end(), i * 17), chosen.end());
    // More of them than there is room for.
    EXPECT_EQ(chooseByCells(points, 20, kept).size(), 20U);
}

TEST(ChooseByCells, NeighboursInTheOrderAreNeighboursInSpace) {
    const Points points = scattered(4'000, 1000, 7);
    const auto chosen = chooseByCells(points, 4'000, {});
    double way = 0;
    for (std::size_t i = 1; i < chosen.size(); ++i)
        way += std::hypot(points[chosen[i]].x - points[chosen[i - 1]].x,
                          points[chosen[i]].y - points[chosen[i - 1]].y);
    // In the order of the input it is 521 on average.
    EXPECT_LT(way / 4'000, 40);
}

TEST(ChooseByCells, PointsThatAreNowhereAreLeftOut) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    const Points points{{0, 0, 0}, {infinity, 0, 0}, {0, std::nan(""), 0}, {1, 1, -infinity}, {1, 1, 1}};
    EXPECT_THAT(chooseByCells(points, 5, {}), ::testing::UnorderedElementsAre(0, 4));
}

TEST(ChooseByCells, PointsInOnePlaceAreThinnedToo) {
    const Points points(1'000, {3, 4, 5});
    EXPECT_EQ(chooseByCells(points, 100, {}).size(), 100U);
    const Points vast{{-1.7e308, 0, 0}, {1.7e308, 0, 0}, {0, 0, 0}};
    EXPECT_EQ(chooseByCells(vast, 2, {}).size(), 2U);
}

} // namespace
} // namespace Tidewatch
