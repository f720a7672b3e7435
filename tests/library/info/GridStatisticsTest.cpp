// SPDX-License-Identifier: Apache-2.0
#include "library/info/GridStatistics.hpp"

#include "anchor/Error.hpp"
#include "library/info/Inventory.hpp"
#include "sheaf/UniformCartesianArray.hpp"
#include "support/BundleBuilder.hpp"

#include <limits>
#include <stdexcept>

#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using Support::GridBuilder;
using Support::Points;

const GridStatistics::Range& rangeOf(const GridStatistics& statistics, const std::string& name) {
    for (const GridStatistics::Range& range : statistics.ranges) {
        if (range.name == name)
            return range;
    }
    throw std::runtime_error("no range of " + name);
}

TEST(GridStatistics, RangesAreThoseOfAllFragments) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder grid(*bundle, 0, "g");
    grid.field("Positions", "a", Points{{1, 2, 3}, {4, -5, 6}})
        .field("Positions", "b", Points{{0, 9, 3}})
        .field("Count", "a",
               std::vector<unsigned long long>{std::numeric_limits<unsigned long long>::max(), 3})
        .field("Count", "b", std::vector<unsigned long long>{7})
        .field("Height", "b", std::vector<float>{0.25F});
    const GridStatistics statistics = GridStatistics::of(grid.grid());
    EXPECT_EQ(rangeOf(statistics, "Positions.x").lowest, 0);
    EXPECT_EQ(rangeOf(statistics, "Positions.x").highest, 4);
    EXPECT_EQ(rangeOf(statistics, "Positions.y").lowest, -5);
    EXPECT_EQ(rangeOf(statistics, "Positions.y").values, 3U);
    EXPECT_EQ(rangeOf(statistics, "Count").highest, 18446744073709551615.0L);
    EXPECT_TRUE(rangeOf(statistics, "Count").isWhole);
    EXPECT_TRUE(rangeOf(statistics, "Height").isFloat);
    EXPECT_EQ(rangeOf(statistics, "Height").values, 1U);
}

TEST(GridStatistics, WhatIsNotFiniteIsCountedAndBelongsToNoRange) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder grid(*bundle, 0, "g");
    grid.field("Positions", "", Points{{1, 2, 3}})
        .field("Time", "",
               std::vector<double>{std::numeric_limits<double>::quiet_NaN(),
                                   -std::numeric_limits<double>::infinity(), 5});
    const GridStatistics statistics = GridStatistics::of(grid.grid());
    EXPECT_EQ(rangeOf(statistics, "Time").notFinite, 2U);
    EXPECT_EQ(rangeOf(statistics, "Time").values, 1U);
    EXPECT_EQ(rangeOf(statistics, "Time").lowest, 5);
}

TEST(GridStatistics, ClassesAndReturnsAreCounted) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder grid(*bundle, 0, "g");
    grid.field("Positions", "", Points{{1, 2, 3}, {1, 2, 3}, {1, 2, 3}})
        .field("Classification", "", std::vector<unsigned char>{2, 255, 2})
        .field("ReturnNumber", "", std::vector<unsigned char>{1, 1, 0});
    const GridStatistics statistics = GridStatistics::of(grid.grid());
    EXPECT_EQ(statistics.classes[2], 2U);
    EXPECT_EQ(statistics.classes[255], 1U);
    EXPECT_EQ(statistics.returns[1], 2U);
    EXPECT_EQ(statistics.returns[0], 1U);
}

TEST(GridStatistics, ALatticeHasTheRangesOfItsPlaces) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder grid(*bundle, 0, "g");
    grid.field("Positions", "",
               Anchor::makeStrong<Sheaf::HeldCreator>(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
                   Geom::PhysicalSpace::point{10, 20, 0}, Geom::PhysicalSpace::vector{1, 2, 1},
                   Sheaf::MultiIndex<3>{3, 2, 1})));
    const GridStatistics statistics = GridStatistics::of(grid.grid());
    EXPECT_EQ(rangeOf(statistics, "Positions.x").highest, 12);
    EXPECT_EQ(rangeOf(statistics, "Positions.y").highest, 22);
    EXPECT_EQ(rangeOf(statistics, "Positions.y").values, 6U);
}

TEST(GridStatistics, AGridThatCannotBeReadLeavesTheOthersTheirs) {
    class Failing final : public Sheaf::CreativeArrayBase {
    public:
        const std::type_info& elementType() const noexcept override { return typeid(float); }
        std::optional<Sheaf::Extents> extents() const override { return Sheaf::Extents{2}; }
        Anchor::StrongPtr<Anchor::Cacheable> available() const override { return nullptr; }
        Anchor::StrongPtr<Anchor::Cacheable> create(bool) const override {
            throw Anchor::FormatError("a.laz: chunk 3: is damaged");
        }
    };
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "a")
        .field("Positions", "", Points{{1, 2, 3}})
        .field("Height", "", Anchor::makeStrong<Failing>());
    GridBuilder(*bundle, 0, "b").field("Positions", "", Points{{1, 2, 3}});
    Inventory inventory = Inventory::of(*bundle, {}, false);
    inventory.addStatistics(*bundle);
    EXPECT_EQ(inventory.failures, (std::vector<std::string>{"a.laz: chunk 3: is damaged"}));
    EXPECT_FALSE(inventory.slices[0].grids[0].statistics);
    EXPECT_TRUE(inventory.slices[0].grids[1].statistics);
}

} // namespace
} // namespace Tidewatch
