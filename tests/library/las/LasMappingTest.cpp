// SPDX-License-Identifier: Apache-2.0
#include "library/las/LasMapping.hpp"

#include "las/ExportPointCloudToLas.hpp"
#include "sheaf/UniformCartesianArray.hpp"
#include "support/BundleBuilder.hpp"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using Support::GridBuilder;
using Support::Points;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;

class LasMappingTest : public ::testing::Test {
protected:
    LasMappingTest() { settings.renames = ExportLib::ExportPointCloudToLas::DefaultRenameMap(); }

    [[nodiscard]] LasMapping map(const GridBuilder& grid) const {
        return LasMapping::of(grid.grid(), settings, [&](const std::string& field) {
            return std::find(filtered.begin(), filtered.end(), field) == filtered.end();
        });
    }
    GridBuilder points(const std::string& name = "g") { return GridBuilder(*bundle, 0, name); }

    /// "attribute<-field" of a fragment.
    static std::vector<std::string> captures(const LasMapping& mapping, std::size_t fragment = 0) {
        std::vector<std::string> list;
        for (const LasMapping::Capture& one : mapping.fragments.at(fragment).captures)
            list.push_back(one.attribute + "<-" + one.field);
        return list;
    }

    Anchor::StrongPtr<Sheaf::Bundle> bundle = Anchor::makeStrong<Sheaf::Bundle>();
    LasSettings settings;
    std::vector<std::string> filtered;
};

TEST_F(LasMappingTest, FieldsBecomeTheAttributesOfTheirNames) {
    const LasMapping mapping = map(points()
                                       .field("Positions", "a", Points{{1, 2, 3}, {4, 5, 6}})
                                       .field("Intensity", "a", std::vector<unsigned short>{1, 2})
                                       .field("Positions", "b", Points{{1, 2, 3}})
                                       .field("RGB", "b", std::vector<Geom::RGB<unsigned char>>(1)));
    EXPECT_EQ(mapping.obstacle, "");
    ASSERT_EQ(mapping.fragments.size(), 2U);
    EXPECT_EQ(mapping.fragments[0].name, "a");
    EXPECT_EQ(mapping.fragments[0].points, 2U);
    EXPECT_EQ(mapping.points(), 3U);
    EXPECT_THAT(captures(mapping, 0), ElementsAre("Intensity<-Intensity", "Positions<-Positions"));
    EXPECT_THAT(captures(mapping, 1), ElementsAre("Positions<-Positions", "RGB<-RGB"));
    EXPECT_TRUE(mapping.hasColors);
    EXPECT_FALSE(mapping.hasReflectance || mapping.hasAmplitude);
    EXPECT_THAT(mapping.unknownFields, IsEmpty());
    EXPECT_THAT(mapping.fieldsLeftOut, IsEmpty());
}

TEST_F(LasMappingTest, FieldsWithoutAnAttributeAreNamed) {
    const LasMapping mapping = map(points()
                                       .field("Positions", "", Points{{1, 2, 3}})
                                       .field("Height", "", std::vector<float>{1})
                                       .field("intensity", "", std::vector<unsigned short>{1}));
    EXPECT_THAT(mapping.unknownFields, ElementsAre("Height", "intensity"));
    EXPECT_THAT(mapping.fieldsLeftOut, IsEmpty());
    EXPECT_EQ(mapping.fragments.at(0).name, "Unfragmented");
}

TEST_F(LasMappingTest, FieldsWithoutDataAreNotMissed) {
    auto builder = points();
    builder.field("Positions", "", Points{{1, 2, 3}});
    builder.representation()->makeField("Height", typeid(float));
    EXPECT_THAT(map(builder).unknownFields, IsEmpty());
}

TEST_F(LasMappingTest, FieldsThatTheFilterLeavesOutAreNotMissed) {
    filtered = {"Height", "Intensity"};
    const LasMapping mapping = map(points()
                                       .field("Positions", "", Points{{1, 2, 3}})
                                       .field("Height", "", std::vector<float>{1})
                                       .field("Intensity", "", std::vector<unsigned short>{1}));
    EXPECT_THAT(captures(mapping), ElementsAre("Positions<-Positions"));
    EXPECT_THAT(mapping.unknownFields, IsEmpty());
    EXPECT_THAT(mapping.fieldsLeftOut, IsEmpty());
}

TEST_F(LasMappingTest, AnotherElementTypeIsTheReasonOfALoss) {
    const LasMapping mapping = map(points()
                                       .field("Positions", "", Points{{1, 2, 3}})
                                       .field("Intensity", "", std::vector<unsigned int>{1})
                                       .field("ScanAngleRank", "", std::vector<float>{1}));
    EXPECT_THAT(captures(mapping), ElementsAre("Positions<-Positions"));
    EXPECT_THAT(mapping.fieldsLeftOut,
                ElementsAre(Pair("Intensity", "it is stored as uint32, LAS takes uint16"),
                            Pair("ScanAngleRank", "it is stored as float32, LAS takes int8 or int16")));
}

TEST_F(LasMappingTest, ARenamedFieldTakesAnAttribute) {
    settings.renames["Echo"] = "Intensity";
    const LasMapping mapping = map(
        points().field("Positions", "", Points{{1, 2, 3}}).field("Echo", "", std::vector<unsigned short>{1}));
    EXPECT_THAT(captures(mapping), ElementsAre("Intensity<-Echo", "Positions<-Positions"));
    EXPECT_THAT(mapping.unknownFields, IsEmpty());
}

TEST_F(LasMappingTest, OfTwoFieldsForOneAttributeOneIsLost) {
    // "Echo" is taken first, and then "Intensity" counts as handled; "Zeal" comes later and wins.
    settings.renames["Echo"] = "Intensity";
    settings.renames["Zeal"] = "UserData";
    const LasMapping mapping = map(points()
                                       .field("Positions", "", Points{{1, 2, 3}})
                                       .field("Echo", "", std::vector<unsigned short>{1})
                                       .field("Intensity", "", std::vector<unsigned short>{2})
                                       .field("UserData", "", std::vector<unsigned char>{3})
                                       .field("Zeal", "", std::vector<unsigned char>{4}));
    EXPECT_THAT(captures(mapping), ElementsAre("Intensity<-Echo", "Positions<-Positions", "UserData<-Zeal"));
    EXPECT_THAT(mapping.fieldsLeftOut, ElementsAre(Pair("Intensity", "Echo takes its place"),
                                                   Pair("UserData", "Zeal takes its place")));
}

TEST_F(LasMappingTest, AngleInWholeDegreesWinsOverAFinerOne) {
    settings.renames["Angle"] = "ScanAngleRank";
    const LasMapping fineFirst = map(points("one")
                                         .field("Positions", "", Points{{1, 2, 3}})
                                         .field("Angle", "", std::vector<short>{1})
                                         .field("ScanAngleRank", "", std::vector<signed char>{1}));
    // Renamed onto its name, so the second is not looked at.
    EXPECT_THAT(fineFirst.fieldsLeftOut, ElementsAre(Pair("ScanAngleRank", "Angle takes its place")));
    settings.renames = {{"A", "ScanAngleRank"}, {"B", "ScanAngleRank"}, {"Positions", "Positions"}};
    const LasMapping both = map(points("two")
                                    .field("Positions", "", Points{{1, 2, 3}})
                                    .field("A", "", std::vector<short>{1})
                                    .field("B", "", std::vector<signed char>{1}));
    EXPECT_THAT(captures(both), ElementsAre("ScanAngleRank<-A", "ScanAngleRank<-B", "Positions<-Positions"));
    EXPECT_THAT(both.fieldsLeftOut, ElementsAre(Pair("A", "B takes its place")));
    const LasMapping wholeFirst = map(points("three")
                                          .field("Positions", "", Points{{1, 2, 3}})
                                          .field("A", "", std::vector<signed char>{1})
                                          .field("B", "", std::vector<short>{1}));
    EXPECT_THAT(captures(wholeFirst), ElementsAre("ScanAngleRank<-A", "Positions<-Positions"));
    EXPECT_THAT(wholeFirst.fieldsLeftOut, ElementsAre(Pair("B", "A takes its place")));
}

TEST_F(LasMappingTest, ColoursTakeThePlaceOfTheTimeInOldVersions) {
    auto builder = points()
                       .field("Positions", "", Points{{1, 2, 3}})
                       .field("RGB", "", std::vector<Geom::RGB<unsigned char>>(1))
                       .field("GPSTime", "", std::vector<double>{1});
    for (const int version : {2, 3}) {
        settings.version = version;
        const LasMapping mapping = map(builder);
        EXPECT_FALSE(mapping.hasGpsTime(settings));
        EXPECT_EQ(mapping.pointFormat(settings), 2U);
        EXPECT_THAT(mapping.fieldsLeftOut.at("GPSTime"),
                    HasSubstr("no GPS time in LAS 1." + std::to_string(version)));
    }
    settings.version = 4;
    EXPECT_TRUE(map(builder).hasGpsTime(settings));
    EXPECT_EQ(map(builder).pointFormat(settings), 7U);
    EXPECT_THAT(map(builder).fieldsLeftOut, IsEmpty());
}

TEST_F(LasMappingTest, RenamingDoesNotMakeRoomForExtraBytesAndColours) {
    settings.renames["A"] = "Reflectance";
    settings.renames["B"] = "Amplitude";
    settings.renames["C"] = "RGB";
    const LasMapping mapping = map(points()
                                       .field("Positions", "", Points{{1, 2, 3}})
                                       .field("A", "", std::vector<float>{1})
                                       .field("B", "", std::vector<float>{1})
                                       .field("C", "", std::vector<Geom::RGB<unsigned char>>(1)));
    EXPECT_EQ(mapping.pointFormat(settings), 6U);
    EXPECT_THAT(mapping.fieldsLeftOut,
                ElementsAre(Pair("A", "files have room for Reflectance only where a field is named so"),
                            Pair("B", "files have room for Amplitude only where a field is named so"),
                            Pair("C", "files have room for RGB only where a field is named so")));
}

TEST_F(LasMappingTest, NamesAloneMakeRoom) {
    filtered = {"RGB", "Reflectance"};
    const LasMapping mapping = map(points()
                                       .field("Positions", "", Points{{1, 2, 3}})
                                       .field("RGB", "", std::vector<double>{1})
                                       .field("Reflectance", "", std::vector<float>{1})
                                       .field("Amplitude", "", std::vector<double>{1}));
    EXPECT_TRUE(mapping.hasColors && mapping.hasReflectance && mapping.hasAmplitude);
}

TEST_F(LasMappingTest, TellsWhatStandsInTheWayOfAGrid) {
    EXPECT_EQ(map(GridBuilder(*bundle, 0, "a", {1, 2})).obstacle,
              "it has no vertices of one refinement in all directions");
    EXPECT_EQ(map(points("b").field("Height", "", std::vector<float>{1})).obstacle,
              "it has no Positions in its default chart");
    auto empty = points("c");
    empty.representation()->makeField("Positions", typeid(Geom::PhysicalSpace::point));
    EXPECT_EQ(map(empty).obstacle, "its Positions hold no data");
}

TEST_F(LasMappingTest, TellsWhyAFragmentHasNoPositions) {
    const LasMapping typed = map(points("a").field("Positions", "", std::vector<double>{1}));
    EXPECT_EQ(typed.fragments.at(0).obstacle, "it has no position stored as a point");
    filtered = {"Positions"};
    const LasMapping left = map(points("b").field("Positions", "", Points{{1, 2, 3}}));
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
    const LasMapping local = LasMapping::of(*grid, settings, [](const std::string&) { return true; });
    EXPECT_EQ(local.fragments.at(0).obstacle, "its Positions are not in the chart StandardCartesianChart3D");
}

TEST_F(LasMappingTest, TilesAreNamedByFragmentsThatAreNoLattice) {
    auto builder =
        points()
            .field("Positions", "b", Points{{1, 2, 3}})
            .field("Positions", "a", Points{{1, 2, 3}})
            .field("Positions", "c",
                   Anchor::makeStrong<Sheaf::HeldCreator>(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
                       Geom::PhysicalSpace::point{0, 0, 0}, Geom::PhysicalSpace::vector{1, 1, 1},
                       Sheaf::MultiIndex<3>{2, 2, 1})));
    EXPECT_THAT(LasMapping::tileNames(builder.grid()), ElementsAre("a", "b"));
    EXPECT_THAT(LasMapping::tileNames(GridBuilder(*bundle, 0, "x", {1, 2}).grid()), IsEmpty());
}

TEST(LasAttributes, AreThoseThatTheExporterTakesArraysFor) {
    for (const std::string& name : lasAttributes())
        EXPECT_TRUE(isLasAttribute(name));
    EXPECT_EQ(lasAttributes().size(), 14U);
    for (const char* const name : {"", "intensity", "Height", "X"})
        EXPECT_FALSE(isLasAttribute(name)) << name;
    EXPECT_TRUE(ExportLib::ExportPointCloudToLas::Carries("Reflectance", typeid(float)));
    EXPECT_FALSE(ExportLib::ExportPointCloudToLas::Carries("Height", typeid(float)));
}

} // namespace
} // namespace Tidewatch
