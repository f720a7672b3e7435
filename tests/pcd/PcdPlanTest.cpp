// SPDX-License-Identifier: Apache-2.0
#include "pcd/PcdPlan.hpp"

#include "convlib/RunObserver.hpp"
#include "pcd/ExportPointCloudToPCD.hpp"
#include "sheaf/CachedCreator.hpp"
#include "sheaf/UniformCartesianArray.hpp"
#include "support/BundleBuilder.hpp"
#include "support/ConsoleCapture.hpp"
#include "support/TemporaryFolder.hpp"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using ExportLib::PcdPlan;
using Support::GridBuilder;
using Support::Points;
using ::testing::ElementsAre;
using Role = PcdPlan::Role;

Anchor::StrongPtr<Sheaf::CreativeArrayBase> lattice() {
    return Anchor::makeStrong<Sheaf::HeldCreator>(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
        Geom::PhysicalSpace::point{0, 0, 0}, Geom::PhysicalSpace::vector{1, 1, 1},
        Sheaf::MultiIndex<3>{2, 2, 1}));
}

/// Points that nobody has asked for yet.
class Unread final : public Sheaf::CachedCreator {
public:
    explicit Unread(std::uint64_t stated)
        : CachedCreator(typeid(Geom::PhysicalSpace::point), Sheaf::Extents{stated}) {}

protected:
    [[nodiscard]] Made make() const override {
        ADD_FAILURE() << "a plan makes no array";
        return {Sheaf::makeArray(Points{{1, 2, 3}})};
    }
    [[nodiscard]] std::uint64_t bytesToMake() const override { return 24; }
};

/// Adds up the elements that the exporter announces.
class Announced final : public ConvLib::RunObserver {
public:
    void fragmentBegins(std::string_view field, std::string_view, std::uint64_t count) override {
        fields.emplace_back(field);
        elements += count;
    }
    std::vector<std::string> fields;
    std::uint64_t elements = 0;
};

struct PcdPlanTest : ::testing::Test {
    [[nodiscard]] PcdPlan plan(int refinementLevel = -1, const std::string& leftOut = {}) const {
        return PcdPlan::of(*bundle->slices().at(0).lock()->grids().at("g").lock(), refinementLevel,
                           [&](const std::string& field) { return field != leftOut; });
    }

    Anchor::StrongPtr<Sheaf::Bundle> bundle = Anchor::makeStrong<Sheaf::Bundle>();
};

TEST_F(PcdPlanTest, CountsPositionsAndIntensitiesOfAllFragmentsAndNamesWhatIsLeftOut) {
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "0", Points{{1, 2, 3}, {4, 5, 6}})
        .field("Positions", "1", Points{{-1, 0.5, 9}})
        .field("Intensity", "0", std::vector<unsigned short>{7, 8})
        .field("GPSTime", "0", std::vector<double>{0.5, 1})
        .skeleton({1, 2})
        .field("Elsewhere", "", std::vector<double>{0.5});
    const PcdPlan made = plan();
    EXPECT_EQ(made.obstacle, "");
    EXPECT_EQ(made.elements(Role::Positions), 3U);
    EXPECT_EQ(made.elements(Role::Intensity), 2U);
    EXPECT_EQ(made.elements(), 5U);
    EXPECT_FALSE(made.isShaded());
    ASSERT_EQ(made.fragments.size(), 4U);
    EXPECT_EQ(made.fragments[0].field, "GPSTime");
    EXPECT_EQ(made.fragments[0].whyLeftOut, "PCD holds positions and intensities only");
    EXPECT_EQ(made.fragments[3].whyLeftOut, "");
    EXPECT_TRUE(made.fragments[3].isCertain);
}

TEST_F(PcdPlanTest, FieldsThatTheFilterLeavesOutAreNotInIt) {
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "", Points{{1, 2, 3}})
        .field("Intensity", "", std::vector<unsigned short>{7});
    EXPECT_TRUE(plan().isShaded());
    const PcdPlan made = plan(-1, "Intensity");
    EXPECT_EQ(made.fragments.size(), 1U);
    EXPECT_FALSE(made.isShaded());
}

TEST_F(PcdPlanTest, IntensitiesOfAnotherTypeAreLeftOutAndItIsSaidWhy) {
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "", Points{{1, 2, 3}})
        .field("Intensity", "", std::vector<unsigned int>{7});
    const PcdPlan made = plan();
    EXPECT_EQ(made.elements(Role::Intensity), 0U);
    EXPECT_EQ(made.fragments.at(0).whyLeftOut, "it is stored as uint32, and PCD takes uint16");
}

TEST_F(PcdPlanTest, RefinementLevelChoosesItsSkeletons) {
    GridBuilder(*bundle, 0, "g", {0, 0})
        .field("Positions", "", Points{{1, 2, 3}})
        .skeleton({1, 1})
        .field("Positions", "", Points{{1, 2, 3}, {4, 5, 6}});
    EXPECT_EQ(plan().elements(), 2U);
    EXPECT_EQ(plan(0).elements(), 1U);
    EXPECT_EQ(plan(5).obstacle, "it has nothing to export at refinement level 5");
}

TEST_F(PcdPlanTest, TellsWhatStandsInTheWayOfAnExport) {
    const auto obstacle = [&](const auto& build, const std::string& leftOut = {}) {
        bundle = Anchor::makeStrong<Sheaf::Bundle>();
        build();
        return plan(-1, leftOut).obstacle;
    };
    EXPECT_EQ(obstacle([&] {
                  GridBuilder(*bundle, 0, "g", {1, 2});
              }),
              "it has no vertices of one refinement in all directions");
    EXPECT_EQ(obstacle([&] { GridBuilder(*bundle, 0, "g").field("Height", "", std::vector<float>{1}); }),
              "it has no Positions in its default chart");
    EXPECT_EQ(obstacle([&] {
                  GridBuilder(*bundle, 0, "g", {}, 1).field("Positions", "", Points{{1, 2, 3}});
              }),
              "its vertices are marked as not to be exported, or hold no data");
    EXPECT_EQ(obstacle([&] { GridBuilder(*bundle, 0, "g").field("Positions", "", std::vector<double>{1}); }),
              "it has no position stored as a point");
    EXPECT_EQ(obstacle([&] { GridBuilder(*bundle, 0, "g").field("Positions", "", Points{}); }),
              "it has no position stored as a point");
    EXPECT_EQ(obstacle([&] { GridBuilder(*bundle, 0, "g").field("Positions", "", lattice()); }),
              "its positions are a uniform lattice, not points");
    EXPECT_EQ(obstacle(
                  [&] {
                      GridBuilder(*bundle, 0, "g").field("Positions", "", Points{{1, 2, 3}});
                  },
                  "Positions"),
              "the field filter leaves out its Positions");
}

TEST_F(PcdPlanTest, ArraysThatAreNotInMemoryArePlannedAsStatedAndNotMade) {
    GridBuilder(*bundle, 0, "g").field("Positions", "", Anchor::makeStrong<Unread>(5U));
    EXPECT_EQ(plan().elements(), 5U);
    EXPECT_FALSE(plan().fragments.at(0).isCertain);
    bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "g").field("Positions", "", Anchor::makeStrong<Unread>(0U));
    EXPECT_EQ(plan().obstacle, "");
}

TEST_F(PcdPlanTest, RunAnnouncesWhatIsPlanned) {
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", Points{{1, 2, 3}, {4, 5, 6}})
        .field("Positions", "b", lattice())
        .field("Intensity", "a", std::vector<unsigned int>{7, 8})
        .field("Intensity", "b", std::vector<unsigned short>{7, 8, 9})
        .field("Flags", "", std::vector<int>{1})
        .skeleton({2})
        .field("Positions", "c", Points{{1, 2, 3}});
    const Support::TemporaryFolder folder;
    const Support::ConsoleCapture console;
    for (const int level : {-1, 0}) {
        const auto observer = Anchor::makeStrong<Announced>();
        ExportLib::ExportPointCloudToPCD exporter;
        exporter.bundleptr = bundle;
        exporter.OutputPath = folder / "cloud.pcd";
        exporter.RefLevel = level;
        exporter.setObserver(observer);
        EXPECT_TRUE(exporter.Run());
        const PcdPlan made = plan(level);
        std::vector<std::string> fields;
        for (const PcdPlan::Fragment& fragment : made.fragments)
            fields.push_back(fragment.field);
        EXPECT_EQ(observer->fields, fields) << level;
        EXPECT_EQ(observer->elements, made.elements()) << level;
    }
}

TEST_F(PcdPlanTest, FieldsReadAreThoseThatTheFileIsMadeOf) {
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", Points{{1, 2, 3}})
        .field("Intensity", "a", std::vector<unsigned short>{7})
        .field("Flags", "a", std::vector<int>{1});
    EXPECT_THAT(plan().fieldsRead(), ElementsAre("Intensity", "Positions"));
    EXPECT_THAT(plan(-1, "Intensity").fieldsRead(), ElementsAre("Positions"));
}

} // namespace
