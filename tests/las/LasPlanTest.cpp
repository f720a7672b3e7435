// SPDX-License-Identifier: Apache-2.0
#include "las/LasPlan.hpp"

#include "las/ExportPointCloudToLas.hpp"
#include "sheaf/UniformCartesianArray.hpp"
#include "support/BundleBuilder.hpp"

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ExportLib {
namespace {

using Support::GridBuilder;
using Support::Points;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;

class LasPlanTest : public ::testing::Test {
protected:
    LasPlanTest() { settings.renames = ExportPointCloudToLas::DefaultRenameMap(); }

    [[nodiscard]] LasPlan planOf(const GridBuilder& grid) const {
        return LasPlan::of(grid.grid(), settings, [&](const std::string& field) {
            return std::find(filtered.begin(), filtered.end(), field) == filtered.end();
        });
    }
    GridBuilder points(const std::string& name = "g") { return GridBuilder(*bundle, 0, name); }

    /// "attribute<-field" of a fragment.
    static std::vector<std::string> captures(const LasPlan& plan, std::size_t fragment = 0) {
        std::vector<std::string> list;
        for (const LasPlan::Capture& one : plan.fragments.at(fragment).captures)
            list.push_back(one.attribute + "<-" + one.field);
        return list;
    }

    static std::map<std::string, std::string> reasons(const LasPlan& plan) {
        std::map<std::string, std::string> list;
        for (const auto& [field, leftOut] : plan.fieldsLeftOut)
            list.emplace(field, leftOut.reason);
        return list;
    }

    Anchor::StrongPtr<Sheaf::Bundle> bundle = Anchor::makeStrong<Sheaf::Bundle>();
    LasSettings settings;
    std::vector<std::string> filtered;
};

TEST_F(LasPlanTest, FieldsBecomeTheAttributesOfTheirNames) {
    const LasPlan plan = planOf(points()
                                    .field("Positions", "a", Points{{1, 2, 3}, {4, 5, 6}})
                                    .field("Intensity", "a", std::vector<unsigned short>{1, 2})
                                    .field("Positions", "b", Points{{1, 2, 3}})
                                    .field("RGB", "b", std::vector<Geom::RGB<unsigned char>>(1)));
    EXPECT_EQ(plan.obstacle, "");
    ASSERT_EQ(plan.fragments.size(), 2U);
    EXPECT_EQ(plan.fragments[0].name, "a");
    EXPECT_EQ(plan.fragments[0].points, 2U);
    EXPECT_EQ(plan.points(), 3U);
    EXPECT_THAT(captures(plan, 0), ElementsAre("Intensity<-Intensity", "Positions<-Positions"));
    EXPECT_THAT(captures(plan, 1), ElementsAre("Positions<-Positions", "RGB<-RGB"));
    EXPECT_TRUE(plan.hasColors);
    EXPECT_FALSE(plan.hasReflectance || plan.hasAmplitude);
    EXPECT_THAT(plan.unknownFields, IsEmpty());
    EXPECT_THAT(reasons(plan), IsEmpty());
}

TEST_F(LasPlanTest, FieldsWithoutAnAttributeAreNamed) {
    const LasPlan plan = planOf(points()
                                    .field("Positions", "", Points{{1, 2, 3}})
                                    .field("Height", "", std::vector<float>{1})
                                    .field("intensity", "", std::vector<unsigned short>{1}));
    EXPECT_THAT(plan.unknownFields, ElementsAre("Height", "intensity"));
    EXPECT_THAT(reasons(plan), IsEmpty());
    EXPECT_EQ(plan.fragments.at(0).name, "Unfragmented");
}

TEST_F(LasPlanTest, FieldsWithoutDataAreNotMissed) {
    auto builder = points();
    builder.field("Positions", "", Points{{1, 2, 3}});
    builder.representation()->makeField("Height", typeid(float));
    EXPECT_THAT(planOf(builder).unknownFields, IsEmpty());
}

TEST_F(LasPlanTest, FieldsThatTheFilterLeavesOutAreNotMissed) {
    filtered = {"Height", "Intensity"};
    const LasPlan plan = planOf(points()
                                    .field("Positions", "", Points{{1, 2, 3}})
                                    .field("Height", "", std::vector<float>{1})
                                    .field("Intensity", "", std::vector<unsigned short>{1}));
    EXPECT_THAT(captures(plan), ElementsAre("Positions<-Positions"));
    EXPECT_THAT(plan.unknownFields, IsEmpty());
    EXPECT_THAT(reasons(plan), IsEmpty());
}

TEST_F(LasPlanTest, AnotherElementTypeIsTheReasonOfALoss) {
    const LasPlan plan = planOf(points()
                                    .field("Positions", "", Points{{1, 2, 3}})
                                    .field("Intensity", "", std::vector<unsigned int>{1})
                                    .field("ScanAngleRank", "", std::vector<float>{1}));
    EXPECT_THAT(captures(plan), ElementsAre("Positions<-Positions"));
    EXPECT_THAT(reasons(plan),
                ElementsAre(Pair("Intensity", "it is stored as uint32, LAS takes uint16"),
                            Pair("ScanAngleRank", "it is stored as float32, LAS takes int8 or int16")));
}

TEST_F(LasPlanTest, ARenamedFieldTakesAnAttribute) {
    settings.renames["Echo"] = "Intensity";
    const LasPlan plan = planOf(
        points().field("Positions", "", Points{{1, 2, 3}}).field("Echo", "", std::vector<unsigned short>{1}));
    EXPECT_THAT(captures(plan), ElementsAre("Intensity<-Echo", "Positions<-Positions"));
    EXPECT_THAT(plan.unknownFields, IsEmpty());
}

TEST_F(LasPlanTest, OfTwoFieldsForOneAttributeOneIsLost) {
    // "Echo" is taken first, and then "Intensity" counts as handled; "Zeal" comes later and wins.
    settings.renames["Echo"] = "Intensity";
    settings.renames["Zeal"] = "UserData";
    const LasPlan plan = planOf(points()
                                    .field("Positions", "", Points{{1, 2, 3}})
                                    .field("Echo", "", std::vector<unsigned short>{1})
                                    .field("Intensity", "", std::vector<unsigned short>{2})
                                    .field("UserData", "", std::vector<unsigned char>{3})
                                    .field("Zeal", "", std::vector<unsigned char>{4}));
    EXPECT_THAT(captures(plan), ElementsAre("Intensity<-Echo", "Positions<-Positions", "UserData<-Zeal"));
    EXPECT_THAT(reasons(plan), ElementsAre(Pair("Intensity", "Echo takes its place"),
                                           Pair("UserData", "Zeal takes its place")));
}

TEST_F(LasPlanTest, AngleInWholeDegreesWinsOverAFinerOne) {
    settings.renames["Angle"] = "ScanAngleRank";
    const LasPlan fineFirst = planOf(points("one")
                                         .field("Positions", "", Points{{1, 2, 3}})
                                         .field("Angle", "", std::vector<short>{1})
                                         .field("ScanAngleRank", "", std::vector<signed char>{1}));
    // Renamed onto its name, so the second is not looked at.
    EXPECT_THAT(reasons(fineFirst), ElementsAre(Pair("ScanAngleRank", "Angle takes its place")));
    settings.renames = {{"A", "ScanAngleRank"}, {"B", "ScanAngleRank"}, {"Positions", "Positions"}};
    const LasPlan both = planOf(points("two")
                                    .field("Positions", "", Points{{1, 2, 3}})
                                    .field("A", "", std::vector<short>{1})
                                    .field("B", "", std::vector<signed char>{1}));
    EXPECT_THAT(captures(both), ElementsAre("ScanAngleRank<-A", "ScanAngleRank<-B", "Positions<-Positions"));
    EXPECT_THAT(reasons(both), ElementsAre(Pair("A", "B takes its place")));
    const LasPlan wholeFirst = planOf(points("three")
                                          .field("Positions", "", Points{{1, 2, 3}})
                                          .field("A", "", std::vector<signed char>{1})
                                          .field("B", "", std::vector<short>{1}));
    EXPECT_THAT(captures(wholeFirst), ElementsAre("ScanAngleRank<-A", "Positions<-Positions"));
    EXPECT_THAT(reasons(wholeFirst), ElementsAre(Pair("B", "A takes its place")));
}

TEST_F(LasPlanTest, ColoursTakeThePlaceOfTheTimeInOldVersions) {
    auto builder = points()
                       .field("Positions", "", Points{{1, 2, 3}})
                       .field("RGB", "", std::vector<Geom::RGB<unsigned char>>(1))
                       .field("GPSTime", "", std::vector<double>{1});
    for (const int version : {2, 3}) {
        settings.version = version;
        const LasPlan plan = planOf(builder);
        EXPECT_FALSE(plan.hasGpsTime);
        EXPECT_EQ(plan.pointFormat, 2U);
        EXPECT_THAT(plan.fieldsLeftOut.at("GPSTime").reason,
                    HasSubstr("no GPS time in LAS 1." + std::to_string(version)));
    }
    settings.version = 4;
    EXPECT_TRUE(planOf(builder).hasGpsTime);
    EXPECT_EQ(planOf(builder).pointFormat, 7U);
    EXPECT_THAT(reasons(planOf(builder)), IsEmpty());
}

TEST_F(LasPlanTest, RenamingDoesNotMakeRoomForExtraBytesAndColours) {
    settings.renames["A"] = "Reflectance";
    settings.renames["B"] = "Amplitude";
    settings.renames["C"] = "RGB";
    const LasPlan plan = planOf(points()
                                    .field("Positions", "", Points{{1, 2, 3}})
                                    .field("A", "", std::vector<float>{1})
                                    .field("B", "", std::vector<float>{1})
                                    .field("C", "", std::vector<Geom::RGB<unsigned char>>(1)));
    EXPECT_EQ(plan.pointFormat, 6U);
    EXPECT_THAT(reasons(plan),
                ElementsAre(Pair("A", "files have room for Reflectance only where a field is named so"),
                            Pair("B", "files have room for Amplitude only where a field is named so"),
                            Pair("C", "files have room for RGB only where a field is named so")));
}

TEST_F(LasPlanTest, NamesAloneMakeRoom) {
    filtered = {"RGB", "Reflectance"};
    const LasPlan plan = planOf(points()
                                    .field("Positions", "", Points{{1, 2, 3}})
                                    .field("RGB", "", std::vector<double>{1})
                                    .field("Reflectance", "", std::vector<float>{1})
                                    .field("Amplitude", "", std::vector<double>{1}));
    EXPECT_TRUE(plan.hasColors && plan.hasReflectance && plan.hasAmplitude);
}

TEST_F(LasPlanTest, TellsWhatStandsInTheWayOfAGrid) {
    EXPECT_EQ(planOf(GridBuilder(*bundle, 0, "a", {1, 2})).obstacle,
              "it has no vertices of one refinement in all directions");
    EXPECT_EQ(planOf(points("b").field("Height", "", std::vector<float>{1})).obstacle,
              "it has no Positions in its default chart");
    auto empty = points("c");
    empty.representation()->makeField("Positions", typeid(Geom::PhysicalSpace::point));
    EXPECT_EQ(planOf(empty).obstacle, "its Positions hold no data");
}

TEST_F(LasPlanTest, TellsWhyAFragmentHasNoPositions) {
    const LasPlan typed = planOf(points("a").field("Positions", "", std::vector<double>{1}));
    EXPECT_EQ(typed.fragments.at(0).obstacle, "it has no position stored as a point");
    filtered = {"Positions"};
    const LasPlan left = planOf(points("b").field("Positions", "", Points{{1, 2, 3}}));
    EXPECT_EQ(left.fragments.at(0).obstacle, "the field filter leaves out its Positions");
    filtered = {};
    const auto grid = bundle->makeSlice(1)->makeGrid("c");
    const auto chart = grid->declareCartesianChart("Local");
    grid->skeletons()
        .make({0, {}})
        ->representations()
        .make(chart)
        ->makeField("Positions", typeid(Geom::PhysicalSpace::point))
        ->addFragment(nullptr, Support::held(Points{{1, 2, 3}}));
    const LasPlan local = LasPlan::of(*grid, settings, [](const std::string&) { return true; });
    EXPECT_EQ(local.fragments.at(0).obstacle, "its Positions are not in the chart StandardCartesianChart3D");
}

Anchor::StrongPtr<Sheaf::CreativeArrayBase> lattice() {
    return Anchor::makeStrong<Sheaf::HeldCreator>(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
        Geom::PhysicalSpace::point{0, 0, 0}, Geom::PhysicalSpace::vector{1, 1, 1},
        Sheaf::MultiIndex<3>{2, 2, 1}));
}

/// Makes nothing unless it is asked to, and then fails the test.
class UnreadPositions final : public Sheaf::CreativeArrayBase {
public:
    Anchor::StrongPtr<Anchor::Cacheable> create(bool) const override {
        ADD_FAILURE() << "an array was made";
        return nullptr;
    }
    const std::type_info& elementType() const noexcept override { return typeid(Geom::PhysicalSpace::point); }
    std::optional<Sheaf::Extents> extents() const override { return std::nullopt; }
    Anchor::StrongPtr<Anchor::Cacheable> available() const override { return nullptr; }
};

TEST_F(LasPlanTest, TellsLatticesFromPointsWhereArraysAreInMemory) {
    auto builder = points()
                       .field("Positions", "b", Points{{1, 2, 3}})
                       .field("Positions", "a", lattice())
                       .field("Positions", "c", Anchor::makeStrong<UnreadPositions>());
    const LasPlan plan = planOf(builder);
    ASSERT_EQ(plan.fragments.size(), 3U);
    EXPECT_EQ(plan.fragments[0].content, LasPlan::Content::Lattice);
    EXPECT_EQ(plan.fragments[1].content, LasPlan::Content::Points);
    EXPECT_EQ(plan.fragments[2].content, LasPlan::Content::KnownWhenRead);
    EXPECT_EQ(plan.fragments[2].points, 0U);
}

TEST_F(LasPlanTest, FragmentsGoToOneFileOrWithTilesEachToItsOwn) {
    auto builder =
        points().field("Positions", "a.b", Points{{1, 2, 3}}).field("Positions", "", Points{{1, 2, 3}});
    settings.outputPath = "out.1/cloud.x";
    LasPlan plan = planOf(builder);
    EXPECT_EQ(plan.fragments.at(0).file, "out.1/cloud.laz");
    EXPECT_EQ(plan.fragments.at(1).file, "out.1/cloud.laz");
    settings.tiles = settings.uncompressed = true;
    settings.outputPath = "out.1/cloud";
    plan = planOf(builder);
    EXPECT_EQ(plan.fragments.at(0).file, "out_Unfragmented.las");
    EXPECT_EQ(plan.fragments.at(1).file, "out_a.b.las");
}

TEST_F(LasPlanTest, OtherVersionsBecomeNoFile) {
    settings.version = 5;
    EXPECT_EQ(planOf(points().field("Positions", "", Points{{1, 2, 3}})).obstacle, "LAS 1.5 is not written");
}

TEST_F(LasPlanTest, ChangesNothingInTheGrid) {
    auto builder =
        points().field("Positions", "", Points{{1, 2, 3}}).field("Reflectance", "", std::vector<float>{1});
    const auto grid = bundle->makeSlice(1)->makeGrid("local");
    grid->skeletons()
        .make({0, {}})
        ->representations()
        .make(grid->declareCartesianChart("Local"))
        ->makeField("Positions", typeid(Geom::PhysicalSpace::point))
        ->addFragment(nullptr, Support::held(Points{{1, 2, 3}}));
    const LasPlan plan = LasPlan::of(*grid, settings, [](const std::string&) { return true; });
    EXPECT_FALSE(grid->findCartesianChart(std::string(Sheaf::Grid::standardChart)));
}

TEST_F(LasPlanTest, TakesItsSettingsFromAnExporter) {
    ExportPointCloudToLas exporter;
    exporter.Version = 3;
    exporter.tiles = exporter.uncompressed = true;
    exporter.PointSourceID = 7;
    exporter.OutputPath = "a/b";
    exporter.RenameMap = {{"Echo", "UserData"}};
    settings = LasSettings::of(exporter);
    EXPECT_EQ(settings.version, 3);
    EXPECT_TRUE(settings.tiles && settings.uncompressed);
    EXPECT_EQ(settings.pointSourceID, 7);
    EXPECT_EQ(settings.outputPath, "a/b");
    const LasPlan plan = planOf(
        points().field("Positions", "", Points{{1, 2, 3}}).field("Echo", "", std::vector<unsigned char>{1}));
    EXPECT_THAT(captures(plan), ElementsAre("UserData<-Echo", "Positions<-Positions"));
    // As in a run, an empty map stands for the default names.
    settings.renames.clear();
    EXPECT_THAT(planOf(points("h").field("Positions", "", Points{{1, 2, 3}})).fragments.at(0).captures.size(),
                1U);
}

TEST_F(LasPlanTest, FieldsReadAreThoseOfTheCaptures) {
    settings.renames = {{"Echo", "UserData"}};
    const LasPlan plan = planOf(points()
                                    .field("Positions", "", Points{{1, 2, 3}})
                                    .field("Echo", "", std::vector<unsigned char>{1})
                                    .field("Other", "", std::vector<unsigned char>{1}));
    EXPECT_THAT(plan.fieldsRead(), ElementsAre("Echo", "Positions"));
}

TEST(LasAttributes, AreThoseThatTheExporterTakesArraysFor) {
    EXPECT_EQ(LasPlan::attributes().size(), 14U);
    const auto defaults = ExportPointCloudToLas::DefaultRenameMap();
    for (const auto& [field, attribute] : defaults)
        EXPECT_THAT(LasPlan::attributes(), ::testing::Contains(attribute));
}

TEST(LasAttributes, HaveElementTypesOfWhichTheFirstIsPreferred) {
    const auto namesOf = [](const std::string& attribute, bool carry) {
        std::vector<std::string> names;
        for (const std::type_info* const type : LasPlan::elementTypes(attribute, carry))
            names.emplace_back(Sheaf::elementTypeName(*type));
        return names;
    };
    EXPECT_THAT(namesOf("Positions", false), ElementsAre("point"));
    EXPECT_THAT(namesOf("ScanAngleRank", false), ElementsAre("int8", "int16"));
    EXPECT_THAT(namesOf("Overlap", true), ElementsAre("uint8"));
    EXPECT_THAT(namesOf("Overlap", false), ElementsAre());
    EXPECT_THAT(namesOf("Height", true), ElementsAre());
}

} // namespace
} // namespace ExportLib
