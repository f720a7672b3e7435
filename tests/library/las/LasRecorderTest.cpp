// SPDX-License-Identifier: Apache-2.0
#include "library/las/LasRecorder.hpp"

#include "anchor/Error.hpp"
#include "library/las/RecordedLas.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using ExportLib::LasSettings;
using Support::GridBuilder;
using Support::Points;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

Anchor::StrongPtr<Sheaf::CreativeArrayBase> lattice(double x = 0) {
    return Anchor::makeStrong<Sheaf::HeldCreator>(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
        Geom::PhysicalSpace::point{x, 0, 0}, Geom::PhysicalSpace::vector{1, 1, 1},
        Sheaf::MultiIndex<3>{2, 2, 1}));
}

/// The message with which a run ends; empty where it comes to its end.
std::string failure(BuildingReader::Build build, const LasSettings& settings = {}) {
    try {
        const RecordedLas recorded(std::move(build), settings);
    } catch (const Anchor::Error& error) {
        return error.what();
    }
    return {};
}

BuildingReader::Build cloud(Points points) {
    return [=](Sheaf::Bundle& bundle, const std::string&) {
        GridBuilder(bundle, 0, "g").field("Positions", "", points);
    };
}

TEST(LasRecorder, NotesWhichFragmentsWentIntoTheFile) {
    const RecordedLas recorded([](Sheaf::Bundle& bundle, const std::string&) {
        GridBuilder(bundle, 0, "g")
            .field("Positions", "a", Points{{1, 2, 3}, {4, 5, 6}})
            .field("Positions", "b", Points{{-1, 0.5, 9}})
            .field("Intensity", "b", std::vector<unsigned short>{7});
    });
    const LasRecorder::Grid& grid = recorded.grid();
    ASSERT_EQ(grid.files.size(), 1U);
    ASSERT_EQ(grid.files[0].fragments.size(), 2U);
    EXPECT_EQ(grid.files[0].fragments[0]->name, "a");
    EXPECT_EQ(grid.files[0].fragments[1]->name, "b");
    EXPECT_EQ(grid.files[0].axes[0].lower, -1);
    EXPECT_EQ(grid.files[0].axes[2].upper, 9);
    EXPECT_EQ(fragmentWithoutPositions(grid), nullptr);
    const ExportedGrid& exported = recorded.recorder().grids().at(0);
    EXPECT_EQ(exported.survey.axis(0)->upper, 4);
    const auto repeated = exported.changed("Intensity", ConvLib::ValueChange::Repeated);
    EXPECT_EQ(repeated.count, 2U);
    EXPECT_EQ(repeated.total, 3U);
    EXPECT_EQ(grid.inputStep, Geom::PhysicalSpace::vector{});
}

TEST(LasRecorder, EachTileIsAFileOfItsOwn) {
    LasSettings tiles;
    tiles.tiles = true;
    const RecordedLas recorded(
        [](Sheaf::Bundle& bundle, const std::string&) {
            GridBuilder(bundle, 0, "g")
                .field("Positions", "a", Points{{1, 2, 3}})
                .field("Positions", "b", lattice())
                .field("Positions", "c", Points{{7, 2, 3}});
        },
        tiles);
    const LasRecorder::Grid& grid = recorded.grid();
    ASSERT_EQ(grid.files.size(), 2U);
    EXPECT_EQ(grid.files[0].fragments.at(0)->name, "a");
    EXPECT_EQ(grid.files[1].fragments.at(0)->name, "c");
    EXPECT_EQ(grid.files[1].axes[0].lower, 7);
}

TEST(LasRecorder, KnowsTheStepOfTheFileThatBecameTheGrid) {
    const RecordedLas recorded([](Sheaf::Bundle& bundle, const std::string& path) {
        const auto grid = bundle.makeSlice(0)->makeGrid("stepped", path);
        grid->skeletons()
            .make({0, {}})
            ->representations()
            .make(grid->declareCartesianChart(std::string(Sheaf::Grid::standardChart)))
            ->makeField("Positions", typeid(Geom::PhysicalSpace::point))
            ->addFragment(nullptr, Support::held(Points{{1, 2, 3}}));
    });
    EXPECT_EQ(recorded.grid().inputStep, (Geom::PhysicalSpace::vector{0.25, 0.5, 1}));
    // So the positions need not be asked for theirs.
    EXPECT_EQ(recorded.recorder().grids().at(0).survey.points(), 0U);
}

TEST(LasRecorder, PassesLatticesByAsTheExporterDoes) {
    const RecordedLas recorded([](Sheaf::Bundle& bundle, const std::string&) {
        GridBuilder(bundle, 0, "g")
            .field("Positions", "a", lattice())
            .field("Positions", "b", Points{{5, 5, 5}})
            .field("Positions", "c", lattice());
        GridBuilder(bundle, 0, "h").field("Positions", "", lattice());
    });
    ASSERT_EQ(recorded.grid().files.size(), 1U);
    ASSERT_EQ(recorded.grid().files[0].fragments.size(), 1U);
    EXPECT_EQ(recorded.grid().files[0].fragments[0]->name, "b");
    // The exporter's header spans the lattices, too.
    EXPECT_EQ(recorded.grid().files[0].axes[0].lower, 0);
    EXPECT_EQ(fragmentWithoutPositions(recorded.grid()), nullptr);
    EXPECT_TRUE(recorded.grid(1).files.empty());
    EXPECT_FALSE(recorded.recorder().grids()[1].hasFiles());
}

TEST(LasRecorder, ALatticeBeyondTheAxesKeepsNoPointsOut) {
    EXPECT_EQ(failure([](Sheaf::Bundle& bundle, const std::string&) {
                  GridBuilder(bundle, 0, "g")
                      .field("Positions", "a", lattice(0))
                      .field("Positions", "b", lattice(2e6))
                      .field("Positions", "c", Points{{1e6, 5, 5}});
              }),
              "");
}

TEST(LasRecorder, NotesWhereTheExporterLeftTheSlice) {
    RecordedLas recorded([](Sheaf::Bundle& bundle, const std::string&) {
        GridBuilder(bundle, 0, "g")
            .field("Positions", "a", Points{{1, 2, 3}})
            .field("Positions", "b", std::vector<double>{1})
            .field("Positions", "c", Points{{1, 2, 3}});
        GridBuilder(bundle, 0, "h").field("Positions", "", Points{{1, 2, 3}});
        GridBuilder(bundle, 1, "h").field("Positions", "", Points{{1, 2, 3}});
    });
    const LasRecorder::Grid& grid = recorded.grid();
    ASSERT_EQ(grid.files.size(), 1U);
    EXPECT_EQ(grid.files[0].fragments.size(), 1U);
    ASSERT_NE(fragmentWithoutPositions(grid), nullptr);
    EXPECT_EQ(fragmentWithoutPositions(grid)->name, "b");
    ASSERT_EQ(recorded.recorder().grids().size(), 2U);
    EXPECT_EQ(recorded.recorder().grids()[1].time, 1);
    EXPECT_EQ(recorded.recorder().plannedGrids().size(), 3U);
    EXPECT_THAT(recorded.exporter().Errors, ::testing::ElementsAre("No positions to export"));
}

TEST(LasRecorder, ACoordinateThatDoesNotFitIsAnErrorWithAxisValueAndLimits) {
    // 32 bits of steps of 0.00025 span about 1 073 741.8, less what the offset is rounded down by.
    EXPECT_EQ(failure(cloud({{0, 0, 0}, {0, 1'073'740, 0}})), "");
    EXPECT_THAT(failure(cloud({{0, 0, 0}, {0, 1'073'741, 0}})),
                HasSubstr("y = 1073741 does not fit into a LAS file, whose coordinates are 32-bit numbers of "
                          "steps of 0.00025, here from -0.912 to 1073740.91175;"));
    EXPECT_EQ(failure(cloud({{0, 0, 0}, {0, 1'073'743, 0}})),
              "grid \"g\" at time 0: y = 1073743 does not fit into a LAS file, whose coordinates are 32-bit "
              "numbers of steps of 0.00025, here from 0.088 to 1073741.91175; --tiles gives "
              "each fragment its own limits");
}

TEST(LasRecorder, TilesHaveLimitsOfTheirOwn) {
    const auto build = [](Sheaf::Bundle& bundle, const std::string&) {
        GridBuilder(bundle, 0, "g")
            .field("Positions", "a", Points{{0, 0, 0}})
            .field("Positions", "b", Points{{0, 0, 5e6}});
    };
    EXPECT_THAT(failure(build), HasSubstr("z = 5000000 does not fit"));
    LasSettings tiles;
    tiles.tiles = true;
    EXPECT_EQ(failure(build, tiles), "");
    EXPECT_THAT(failure(cloud({{0, 0, 0}, {0, 0, 5e6}}), tiles),
                AllOf(HasSubstr("z = 5000000 does not fit"), Not(HasSubstr("--tiles"))));
}

TEST(LasRecorder, WhatIsNoFiniteNumberDoesNotFit) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    EXPECT_THAT(failure(cloud({{0, 0, 0}, {0, std::nan(""), 0}})),
                HasSubstr("y = nan does not fit into a LAS file, whose coordinates are finite numbers"));
    EXPECT_THAT(failure(cloud({{0, 0, 0}, {0, 0, infinity}})), HasSubstr("z = inf does not fit"));
    EXPECT_THAT(failure(cloud({{-infinity, 0, 0}, {1, 0, 0}})), HasSubstr("x = -inf does not fit"));
    EXPECT_THAT(failure(cloud({{1e308, 0, 0}, {-1e308, 0, 0}})), HasSubstr("does not fit"));
    EXPECT_THAT(failure(cloud({{std::nan(""), 0, 0}})), HasSubstr("x = nan does not fit"));
}

TEST(LasRecorder, PositionsOfAnotherFieldAreCheckedWhenTheyAreWritten) {
    LasSettings settings;
    settings.renames = {{"Positions", "UserData"}, {"Moved", "Positions"}};
    EXPECT_THAT(failure(
                    [](Sheaf::Bundle& bundle, const std::string&) {
                        GridBuilder(bundle, 0, "g")
                            .field("Positions", "", Points{{1, 2, 3}})
                            .field("Moved", "", Points{{1, -9e7, 3}});
                    },
                    settings),
                HasSubstr("y = -90000000 does not fit"));
}

} // namespace
} // namespace Tidewatch
