// SPDX-License-Identifier: Apache-2.0
#include "library/pcd/PcdWalk.hpp"

#include "library/BuildingReader.hpp"
#include "pcd/ExportPointCloudToPCD.hpp"
#include "sheaf/UniformCartesianArray.hpp"
#include "support/BundleBuilder.hpp"
#include "support/TemporaryFolder.hpp"

#include <stdexcept>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using Support::GridBuilder;
using Support::Points;

/// Runs the exporter under a walk over what the function builds.
class Walked {
public:
    explicit Walked(BuildingReader::Build build, int refinementLevel = -1, Filters filters = {})
        : inputs_(readBuilt(folder_, std::move(build))),
          selection_(filters),
          walk_(Anchor::makeStrong<PcdWalk>(RunScope{}, inputs_, selection_, refinementLevel,
                                            Anchor::makeStrong<Progress>())) {
        exporter_.RefLevel = refinementLevel;
        exporter_.bundleptr = inputs_.bundle();
        exporter_.OutputPath = folder_ / "out.pcd";
        filters.applyTo(exporter_);
        walk_->follow(exporter_);
        EXPECT_TRUE(exporter_.Run());
        walk_->finish(exporter_.writtenFiles());
    }

    [[nodiscard]] const PcdWalk::Grid& grid(std::size_t visit = 0) const {
        const PcdWalk::Grid* const known = walk_->find(walk_->grids().at(visit));
        if (known == nullptr)
            throw std::runtime_error("an unknown grid");
        return *known;
    }
    [[nodiscard]] const ExportedGrid& visit(std::size_t number = 0) const {
        return walk_->grids().at(number);
    }

private:
    Support::TemporaryFolder folder_;
    Inputs inputs_;
    Selection selection_;
    Anchor::StrongPtr<PcdWalk> walk_;
    ExportLib::ExportPointCloudToPCD exporter_;
};

TEST(PcdWalk, LooksAtThePositionsOfAllFragments) {
    const Walked walked([](Sheaf::Bundle& bundle, const std::string&) {
        GridBuilder(bundle, 0, "g")
            .field("Positions", "0", Points{{1, 2, 3}, {4, 5, 6}})
            .field("Positions", "1", Points{{-1, 0.5, 9}});
    });
    EXPECT_TRUE(walked.visit().hasFiles());
    EXPECT_EQ(walked.grid().obstacle, "");
    EXPECT_EQ(walked.grid().survey.points(), 3U);
    EXPECT_EQ(walked.grid().survey.axis(0)->lower, -1);
    EXPECT_EQ(walked.grid().survey.axis(2)->upper, 9);
    EXPECT_EQ(walked.grid().survey.axis(1)->decimalStep, 0.1);
    EXPECT_FALSE(walked.grid().inputStep);
}

TEST(PcdWalk, KnowsTheStepOfTheFileThatBecameTheGrid) {
    const Walked walked([](Sheaf::Bundle& bundle, const std::string& path) {
        const auto grid = bundle.makeSlice(0)->makeGrid("stepped", path);
        const auto chart = grid->makeCartesianChart("c", 0);
        grid->skeletons().make({0, {}})->representations().make(chart)->makeField(
            "Positions", typeid(Geom::PhysicalSpace::point));
        // The same name at another time, and from no file.
        GridBuilder(bundle, 1, "stepped").field("Positions", "", Points{{1, 2, 3}});
    });
    EXPECT_EQ(walked.grid(0).inputStep, (Geom::PhysicalSpace::vector{0.25, 0.5, 1}));
    EXPECT_FALSE(walked.grid(1).inputStep);
}

TEST(PcdWalk, TellsWhichFieldsThereAreBesides) {
    const Walked walked([](Sheaf::Bundle& bundle, const std::string&) {
        GridBuilder(bundle, 0, "g")
            .field("Positions", "", Points{{1, 2, 3}})
            .field("Intensity", "", std::vector<unsigned short>{7})
            .field("GPSTime", "", std::vector<double>{0.5})
            .field("Classification", "", std::vector<unsigned char>{2})
            .skeleton({1, 2})
            .field("Elsewhere", "", std::vector<double>{0.5});
    });
    EXPECT_THAT(walked.grid().otherFields, ::testing::ElementsAre("Classification", "GPSTime"));
    EXPECT_EQ(walked.grid().intensities, 1U);
    EXPECT_TRUE(walked.grid().unfitIntensities.empty());
}

TEST(PcdWalk, FieldsThatTheFilterLeavesOutAreNotMissed) {
    const Walked walked(
        [](Sheaf::Bundle& bundle, const std::string&) {
            GridBuilder(bundle, 0, "g")
                .field("Positions", "", Points{{1, 2, 3}})
                .field("Intensity", "", std::vector<unsigned short>{7})
                .field("GPSTime", "", std::vector<double>{0.5});
        },
        -1, {{}, {}, {"Positions"}});
    EXPECT_TRUE(walked.grid().otherFields.empty());
    EXPECT_EQ(walked.grid().intensities, 0U);
}

TEST(PcdWalk, IntensitiesOfOtherTypesAreToldApart) {
    const Walked walked([](Sheaf::Bundle& bundle, const std::string&) {
        GridBuilder(bundle, 0, "g")
            .field("Positions", "", Points{{1, 2, 3}})
            .field("Intensity", "", std::vector<unsigned int>{7});
    });
    EXPECT_EQ(walked.grid().intensities, 0U);
    EXPECT_THAT(walked.grid().unfitIntensities, ::testing::ElementsAre("uint32"));
}

TEST(PcdWalk, ARefinementLevelChoosesItsSkeletons) {
    const auto build = [](Sheaf::Bundle& bundle, const std::string&) {
        GridBuilder(bundle, 0, "g", {0, 0})
            .field("Positions", "", Points{{1, 2, 3}})
            .skeleton({1, 1})
            .field("Positions", "", Points{{1, 2, 3}, {4, 5, 6}});
    };
    EXPECT_EQ(Walked(build).grid().survey.points(), 2U);
    EXPECT_EQ(Walked(build, 0).grid().survey.points(), 1U);
    const Walked none(build, 5);
    EXPECT_FALSE(none.visit().hasFiles());
    EXPECT_EQ(none.grid().obstacle, "it has nothing to export at refinement level 5");
}

TEST(PcdWalk, TellsWhatStandsInTheWayOfAnExport) {
    const auto obstacle = [](BuildingReader::Build build, Filters filters = {}) {
        const Walked walked(std::move(build), -1, std::move(filters));
        EXPECT_FALSE(walked.visit().hasFiles());
        return walked.grid().obstacle;
    };
    EXPECT_EQ(obstacle([](Sheaf::Bundle& bundle, const std::string&) {
                  GridBuilder(bundle, 0, "g", {1, 2});
              }),
              "it has no vertices of one refinement in all directions");
    EXPECT_EQ(obstacle([](Sheaf::Bundle& bundle, const std::string&) {
                  GridBuilder(bundle, 0, "g").field("Height", "", std::vector<float>{1});
              }),
              "it has no Positions in its default chart");
    EXPECT_EQ(obstacle([](Sheaf::Bundle& bundle, const std::string&) {
                  GridBuilder(bundle, 0, "g", {}, 1).field("Positions", "", Points{{1, 2, 3}});
              }),
              "its vertices are marked as not to be exported, or hold no data");
    EXPECT_EQ(obstacle([](Sheaf::Bundle& bundle, const std::string&) {
                  GridBuilder(bundle, 0, "g").field("Positions", "", std::vector<double>{1});
              }),
              "it has no position stored as a point");
    EXPECT_EQ(obstacle(
                  [](Sheaf::Bundle& bundle, const std::string&) {
                      GridBuilder(bundle, 0, "g")
                          .field("Positions", "", Points{{1, 2, 3}})
                          .field("Intensity", "", std::vector<unsigned short>{1});
                  },
                  {{}, {}, {"Intensity"}}),
              "the field filter leaves out its Positions");
}

TEST(PcdWalk, AUniformLatticeShowsAsNoPointsSeen) {
    const Walked walked([](Sheaf::Bundle& bundle, const std::string&) {
        GridBuilder(bundle, 0, "g")
            .field("Positions", "",
                   Anchor::makeStrong<Sheaf::HeldCreator>(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
                       Geom::PhysicalSpace::point{0, 0, 0}, Geom::PhysicalSpace::vector{1, 1, 1},
                       Sheaf::MultiIndex<3>{2, 2, 1})));
    });
    EXPECT_FALSE(walked.visit().hasFiles());
    EXPECT_EQ(walked.grid().obstacle, "");
    EXPECT_EQ(walked.grid().survey.points(), 0U);
}

} // namespace
} // namespace Tidewatch
