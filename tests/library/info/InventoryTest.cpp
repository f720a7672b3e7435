// SPDX-License-Identifier: Apache-2.0
#include "library/info/inventoryTexts.hpp"
#include "library/report/Json.hpp"
#include "sheaf/UniformCartesianArray.hpp"
#include "support/BundleBuilder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using Support::GridBuilder;
using Support::Points;

class TestReport final : public ConvLib::InputReport {
public:
    std::string file() const override { return "a.laz"; }
    std::string kind() const override { return "LAS 1.2, point format 3, compressed"; }
    std::string grid() const override { return "a"; }
    std::vector<Fact> facts() const override { return {{"software", "a writer"}}; }
    std::optional<Box> statedBox() const override { return Box{{0, 0, 0}, {1.5, 2, 3}}; }
    std::vector<std::string> notCarried() const override { return {"coordinate reference system"}; }
    std::optional<Geom::PhysicalSpace::vector> coordinateStep() const override {
        return Geom::PhysicalSpace::vector{0.01, 0.01, 0.001};
    }
};

Anchor::StrongPtr<Sheaf::CreativeArrayBase> lattice() {
    return Anchor::makeStrong<Sheaf::HeldCreator>(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
        Geom::PhysicalSpace::point{10, 20, 0}, Geom::PhysicalSpace::vector{1, 2, 1},
        Sheaf::MultiIndex<3>{3, 2, 1}));
}

Anchor::StrongPtr<Sheaf::Bundle> makeBundle() {
    auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "cloud")
        .field("Positions", "0", Points{{1, 2, 3}, {4, 5, 6}})
        .field("Positions", "1", Points{{-1, 0, 9}})
        .field("Intensity", "0", std::vector<unsigned short>{7, 8});
    GridBuilder(*bundle, 0, "model").field("Positions", "", lattice());
    GridBuilder(*bundle, 2.5, "cloud", {0, 0})
        .field("Positions", "", Points{{1, 2, 3}})
        .skeleton({1, 1}, 1)
        .field("Positions", "", Points{{1, 2, 3}, {4, 5, 6}});
    return bundle;
}

TEST(Inventory, CountsPointsOfTheSkeletonThatExportersChoose) {
    const auto bundle = makeBundle();
    const Inventory inventory = Inventory::of(*bundle, {}, false);
    EXPECT_EQ(inventory.grids(), 3U);
    EXPECT_EQ(inventory.points(), 3U + 6U + 2U);
    ASSERT_EQ(inventory.slices.size(), 2U);
    EXPECT_EQ(inventory.slices[0].grids[0].points, 3U);
    EXPECT_EQ(inventory.slices[0].grids[1].points, 6U);
    EXPECT_EQ(inventory.slices[1].time, 2.5);
    EXPECT_EQ(inventory.slices[1].grids[0].skeletons[0].points, 1U);
    EXPECT_TRUE(inventory.slices[1].grids[0].skeletons[1].isExcluded);
}

TEST(Inventory, DescribesFields) {
    const auto bundle = makeBundle();
    const Inventory inventory = Inventory::of(*bundle, {}, false);
    const auto& cloud = inventory.slices[0].grids[0];
    EXPECT_EQ(cloud.fragments, 2U);
    const auto& fields = cloud.skeletons[0].representations[0].fields;
    ASSERT_EQ(fields.size(), 2U);
    EXPECT_EQ(fields[0].name, "Intensity");
    EXPECT_EQ(fields[0].elementType, "uint16");
    EXPECT_EQ(fields[0].elements, 2U);
    EXPECT_EQ(fields[0].fragments, 1U);
    EXPECT_EQ(fields[1].elements, 3U);
    EXPECT_TRUE(fields[1].extents.empty());
    const auto& model = inventory.slices[0].grids[1].skeletons[0].representations[0].fields[0];
    EXPECT_EQ(model.extents, (std::vector<std::uint64_t>{3, 2, 1}));
}

TEST(Inventory, BoundsAreThoseOfAllPositions) {
    const auto bundle = makeBundle();
    const Inventory inventory = Inventory::of(*bundle, {}, true);
    const auto& cloud = inventory.slices[0].grids[0].bounds;
    ASSERT_TRUE(cloud);
    EXPECT_EQ(cloud->lower, (Geom::PhysicalSpace::point{-1, 0, 3}));
    EXPECT_EQ(cloud->upper, (Geom::PhysicalSpace::point{4, 5, 9}));
    const auto& model = inventory.slices[0].grids[1].bounds;
    ASSERT_TRUE(model);
    EXPECT_EQ(model->upper, (Geom::PhysicalSpace::point{12, 22, 0}));
}

TEST(Inventory, AGridWithoutPositionsHasNoBounds) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "g").field("Height", "", std::vector<float>{1});
    EXPECT_FALSE(Inventory::of(*bundle, {}, true).slices[0].grids[0].bounds);
}

TEST(InventoryText, IsIndentedAndAligned) {
    const auto bundle = makeBundle();
    const std::vector<Anchor::StrongPtr<ConvLib::InputReport>> reports{Anchor::makeStrong<TestReport>()};
    EXPECT_EQ(inventoryText(Inventory::of(*bundle, reports, true)),
              R"(a.laz: LAS 1.2, point format 3, compressed
  coordinates in steps of 0.01, 0.01, 0.001
  in the file, but not in the bundle: coordinate reference system
2 time slices, 3 grids, 11 points
time 0
  grid "cloud": 3 points, 2 fragments
    from (-1, 0, 3) to (4, 5, 9)
    vertices: 3 points
      chart StandardCartesianChart3D
        Intensity  uint16  2 values  1 fragment
        Positions  point   3 values  2 fragments
  grid "model": 6 points
    from (10, 20, 0) to (12, 22, 0)
    vertices: 6 points
      chart StandardCartesianChart3D
        Positions  point  6 values  1 fragment  3 x 2 x 1
time 2.5
  grid "cloud": 2 points
    from (1, 2, 3) to (4, 5, 6)
    vertices, refinement (0, 0): 1 point
      chart StandardCartesianChart3D
        Positions  point   1 value  1 fragment
    vertices, refinement (1, 1): 2 points (not to be exported)
      chart StandardCartesianChart3D
        Positions  point  2 values  1 fragment
)");
}

/// A bundle whose grids come from the files "a.laz" and "b.h5".
Anchor::StrongPtr<Sheaf::Bundle> makeFilesBundle() {
    auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "placeholder").field("Positions", "", Points{{1, 2, 3}});
    const auto add = [&](double time, const std::string& name, const std::string& origin) {
        const auto grid = bundle->makeSlice(time)->makeGrid(name, origin);
        const auto skeleton = grid->skeletons().make({0, {}});
        const auto representation = skeleton->representations().make(
            grid->makeCartesianChart(std::string(Sheaf::Grid::standardChart), 0));
        representation->makeField("Positions", typeid(Geom::PhysicalSpace::point))
            ->addFragment(nullptr, Support::held(Points{{1, 2, 3}, {4, 5.5, 6}}));
        representation->makeField("Classification", typeid(unsigned char))
            ->addFragment(nullptr, Support::held(std::vector<unsigned char>{2, 2}));
    };
    add(0, "a", "a.laz");
    add(0, "b", "b.h5");
    add(2.5, "b", "b.h5");
    return bundle;
}

class BundleReport final : public ConvLib::InputReport {
public:
    std::string file() const override { return "b.h5"; }
    std::string kind() const override { return "bundle file"; }
    std::string grid() const override { return ""; }
    std::vector<std::string> notCarried() const override { return {}; }
    std::optional<Geom::PhysicalSpace::vector> coordinateStep() const override { return std::nullopt; }
};

TEST(Inventory, FilesHaveThePointsTimesAndBoxesOfTheirGrids) {
    const auto bundle = makeFilesBundle();
    const std::vector<Anchor::StrongPtr<ConvLib::InputReport>> reports{Anchor::makeStrong<TestReport>(),
                                                                       Anchor::makeStrong<BundleReport>()};
    const Inventory inventory = Inventory::of(*bundle, reports, true);
    ASSERT_EQ(inventory.inputs.size(), 2U);
    EXPECT_EQ(inventory.inputs[0].points, 2U);
    EXPECT_EQ(inventory.inputs[0].times, std::vector<double>{0});
    EXPECT_EQ(inventory.inputs[1].points, 4U);
    EXPECT_EQ(inventory.inputs[1].times, (std::vector<double>{0, 2.5}));
    ASSERT_TRUE(inventory.inputs[0].box);
    EXPECT_EQ(inventory.inputs[0].box->upper, (Geom::PhysicalSpace::point{4, 5.5, 6}));
}

TEST(InventoryTable, HasALineForEachFileWithCoordinatesInItsOwnStep) {
    const auto bundle = makeFilesBundle();
    const std::vector<Anchor::StrongPtr<ConvLib::InputReport>> reports{Anchor::makeStrong<TestReport>(),
                                                                       Anchor::makeStrong<BundleReport>()};
    const Inventory inventory = Inventory::of(*bundle, reports, true);
    EXPECT_EQ(
        inventoryTable(inventory),
        R"(file   format                               points  time          x             y             z               system
a.laz  LAS 1.2, point format 3, compressed       2  0             1.00 to 4.00  2.00 to 5.50  3.000 to 6.000  none
b.h5   bundle file                               4  2 (0 to 2.5)  1 to 4        2 to 5.5      3 to 6          none
2 time slices, 4 grids, 7 points
)");
    EXPECT_THAT(inventoryTable(inventory, 1), testing::HasSubstr("\n... and 1 more; --json shows all\n"));
    EXPECT_THAT(inventoryTable(inventory, 1), testing::Not(testing::HasSubstr("b.h5")));
}

TEST(InventoryTable, OfASingleFileHasWhatItStates) {
    const auto bundle = makeFilesBundle();
    const std::vector<Anchor::StrongPtr<ConvLib::InputReport>> reports{Anchor::makeStrong<TestReport>()};
    EXPECT_EQ(inventoryTable(Inventory::of(*bundle, reports, false)),
              R"(a.laz: LAS 1.2, point format 3, compressed
  points        2
  time          0
  x             1.00 to 4.00
  y             2.00 to 5.50
  z             3.000 to 6.000
  system        none
  software      a writer
  steps         0.01, 0.01, 0.001
  not read      coordinate reference system
2 time slices, 4 grids, 7 points
)");
}

TEST(StatisticsText, HasRangesClassesAndReturns) {
    const auto bundle = makeFilesBundle();
    const std::vector<Anchor::StrongPtr<ConvLib::InputReport>> reports{Anchor::makeStrong<TestReport>()};
    Inventory inventory = Inventory::of(*bundle, reports, false);
    EXPECT_EQ(statisticsText(inventory), "");
    inventory.addStatistics(*bundle);
    EXPECT_TRUE(inventory.failures.empty());
    EXPECT_THAT(statisticsText(inventory), testing::StartsWith(R"(grid "a" at time 0: 2 points
    Classification  2 to 2
    Positions.x     1.00 to 4.00
    Positions.y     2.00 to 5.50
    Positions.z     3.000 to 6.000
    class   2  2 points  Ground
grid "b" at time 0: 2 points
)"));
    const Json statistics = Json::parse(inventoryJson(inventory))["slices"][0]["grids"][0]["statistics"];
    EXPECT_EQ(statistics["classes"], Json::parse(R"([{"class": 2, "points": 2}])"));
    EXPECT_EQ(statistics["ranges"][1], Json::parse(R"({"name": "Positions.x", "values": 2, "not_finite": 0,
        "lowest": 1.0, "highest": 4.0})"));
}

TEST(InventoryText, OfNothingSaysSo) {
    EXPECT_EQ(inventoryText(Inventory()), "0 time slices, 0 grids, 0 points\n");
}

TEST(InventoryJson, HoldsEverything) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0.5, "cloud", {1, 1}).field("Positions", "0", Points{{1, 2, 3}, {4, 5, 6}});
    const std::vector<Anchor::StrongPtr<ConvLib::InputReport>> reports{Anchor::makeStrong<TestReport>()};
    EXPECT_EQ(Json::parse(inventoryJson(Inventory::of(*bundle, reports, true))), Json::parse(R"({
        "inputs": [{"file": "a.laz", "kind": "LAS 1.2, point format 3, compressed",
                    "not_carried": ["coordinate reference system"], "coordinate_step": [0.01, 0.01, 0.001],
                    "points": 0, "box": {"lower": [0.0, 0.0, 0.0], "upper": [1.5, 2.0, 3.0]}, "times": [],
                    "reference_systems": [], "facts": [{"name": "software", "text": "a writer"}]}],
        "points": 2,
        "slices": [{"time": 0.5, "grids": [{
            "name": "cloud", "origin": "", "points": 2, "fragments": 1,
            "bounds": {"lower": [1.0, 2.0, 3.0], "upper": [4.0, 5.0, 6.0]},
            "skeletons": [{"dimension": 0, "refinement": [1, 1], "excluded": false, "points": 2,
                "representations": [{"chart": "StandardCartesianChart3D",
                    "fields": [{"name": "Positions", "type": "point", "elements": 2, "fragments": 1}]}]}]}]}]})"));
}

TEST(InventoryJson, OfNothingHasEmptyLists) {
    EXPECT_EQ(Json::parse(inventoryJson(Inventory())),
              Json::parse(R"({"inputs": [], "points": 0, "slices": []})"));
}

} // namespace
} // namespace Tidewatch
