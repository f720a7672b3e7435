// SPDX-License-Identifier: Apache-2.0
#include "library/ascii/AsciiPlan.hpp"

#include "ascii/AsciiBundle.hpp"

#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using Support::GridBuilder;
using Support::heldArray;
using Support::heldLattice;
using Support::Points;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const AsciiSettings defaults{"CellType", -1, 0, false, false};

class AsciiPlanTest : public ::testing::Test {
protected:
    [[nodiscard]] AsciiPlan plan(const AsciiSettings& settings = defaults,
                                 const Filters& filters = {}) const {
        Selection selection(filters);
        return AsciiPlan::of(*bundle->slices().at(0).lock()->grids().at("g").lock(), selection, settings);
    }
    [[nodiscard]] static std::set<std::string> filesOf(const AsciiPlan& plan, const AsciiSettings& settings) {
        std::set<std::string> files;
        for (const AsciiStop& stop : plan.stops) {
            if (const auto file = stop.file(settings))
                files.insert(file->string());
        }
        return files;
    }
    [[nodiscard]] std::set<std::string> files(const AsciiSettings& settings = defaults) const {
        return filesOf(plan(settings), settings);
    }

    Anchor::StrongPtr<Sheaf::Bundle> bundle = Anchor::makeStrong<Sheaf::Bundle>();
};

TEST_F(AsciiPlanTest, FilesAreNamedAsInAllFourLayouts) {
    GridBuilder(*bundle, 0, "g", {0, 0})
        .field("Positions", "", Points{{1, 2, 3}})
        .skeleton({1, 1})
        .field("Positions", "a", Points{{1, 2, 3}})
        .field("Id", "a", std::vector<int>{7});
    AsciiSettings settings = defaults;
    EXPECT_THAT(files(settings), ElementsAre("Id/a.asc", "Positions/a.asc"));
    settings.refinementLevel = -2;
    EXPECT_THAT(files(settings), ElementsAre("Id/Skeleton1/a.asc", "Positions/Skeleton0/Unfragmented.asc",
                                             "Positions/Skeleton1/a.asc"));
    settings.append = true;
    EXPECT_THAT(files(settings), ElementsAre("Skeleton0/XYZ_Coordinates.asc", "Skeleton1/Id.asc",
                                             "Skeleton1/XYZ_Coordinates.asc"));
    settings.refinementLevel = -1;
    EXPECT_THAT(files(settings), ElementsAre("Id.asc", "XYZ_Coordinates.asc"));
    settings.refinementLevel = 0;
    EXPECT_THAT(files(settings), ElementsAre("Skeleton0/XYZ_Coordinates.asc"));
}

TEST_F(AsciiPlanTest, NumbersOnALatticeAreGridsAndPositionsAreTheirHeader) {
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "f.1", heldLattice({0, 0, 0}, {1, 1, 1}, {2, 1, 1}))
        .field("Height", "f.1", heldArray<float>({2, 1, 1}, {1, 2}))
        .field("Flow", "f.1", heldArray<Geom::PhysicalSpace::vector>({2, 1, 1}, {{1, 2, 3}, {4, 5, 6}}));
    EXPECT_THAT(files(), ElementsAre("Height/f.1.grd"));
    for (const AsciiStop& stop : plan().stops)
        EXPECT_EQ(stop.whyLeftOut(),
                  stop.field == "Flow" ? "only numbers can be written on a lattice, not vector" : "")
            << stop.field;
    AsciiSettings settings = defaults;
    settings.tileSuffix = true;
    EXPECT_THAT(files(settings), IsEmpty());
}

TEST_F(AsciiPlanTest, StopsThatTheExporterPassesOverAreCounted) {
    GridBuilder(*bundle, 0, "g", {0}, 1)
        .field("Positions", "", Points{{1, 2, 3}})
        .skeleton({1})
        .field("Angle", "", std::vector<signed char>{1})
        .field("Positions", "", Points{{1, 2, 3}});
    const AsciiPlan all = plan();
    ASSERT_EQ(all.stops.size(), 3U);
    EXPECT_FALSE(all.stops[0].isSelected);
    EXPECT_TRUE(all.stops[1].isSelected);
    EXPECT_FALSE(all.stops[1].isWritten());
    EXPECT_EQ(all.stops[1].whyLeftOut(), "there is no writer for int8");
    EXPECT_TRUE(all.stops[2].isWritten());
    EXPECT_EQ(plan(defaults, {{}, {}, {"Pos*"}}).stops.size(), 2U);
}

TEST_F(AsciiPlanTest, TellsWhatStandsInTheWayOfAnExport) {
    const auto obstacle = [&](const auto& build, const AsciiSettings& settings = defaults,
                              const Filters& filters = {}) {
        bundle = Anchor::makeStrong<Sheaf::Bundle>();
        build();
        return plan(settings, filters).obstacle;
    };
    const auto lattice = heldLattice({0, 0, 0}, {1, 1, 1}, {1, 1, 2});
    EXPECT_EQ(obstacle([&] {
                  GridBuilder(*bundle, 0, "g", {1, 2});
              }),
              "it has no vertices of one refinement in all directions");
    EXPECT_EQ(obstacle([&] { GridBuilder(*bundle, 0, "g").field("Height", "", std::vector<float>{1}); }),
              "it has no Positions in its default chart");
    const auto points = [&] { GridBuilder(*bundle, 0, "g").field("Positions", "", Points{{1, 2, 3}}); };
    EXPECT_EQ(obstacle(points), "");
    EXPECT_EQ(obstacle(points, defaults, {{}, {}, {"Height"}}),
              "it has no data in the fields that the filter lets pass");
    AsciiSettings fifth = defaults;
    fifth.refinementLevel = 5;
    EXPECT_EQ(obstacle(points, fifth), "it has nothing to export at refinement level 5");
    EXPECT_EQ(obstacle([&] {
                  GridBuilder(*bundle, 0, "g", {}, 1).field("Positions", "", Points{{1, 2, 3}});
              }),
              "its vertices are marked as not to be exported, or hold no data");
    EXPECT_EQ(
        obstacle([&] {
            GridBuilder(*bundle, 0, "g").field("Positions", "", heldLattice({0, 0, 0}, {1, 1, 1}, {1, 1, 1}));
        }),
        "it has no numbers on its lattice to write");
    EXPECT_EQ(obstacle([&] {
                  GridBuilder(*bundle, 0, "g")
                      .field("Positions", "", lattice)
                      .field("Height", "", heldArray<float>({1, 1, 2}, {1, 2}));
              }),
              "Height is left out: a grid file holds one layer, and its lattice has 2");
}

} // namespace
} // namespace Tidewatch
