// SPDX-License-Identifier: Apache-2.0
#include "las/ExportPointCloudToLas.hpp"
#include "record/commonScenarios.hpp"
#include "record/randomScene.hpp"
#include "record/scenarioNames.hpp"

using namespace Record;

namespace {

using Las = ExportLib::ExportPointCloudToLas;
using LasStage = Stage<Las>;
using Color = Geom::RGB<unsigned char>;

void prepare(LasStage& stage) {
    stage.exporter.OutputPath = stage.path("cloud.las");
    stage.exporter.uncompressed = true;
    stage.exporter.Day = 100;
    stage.exporter.Year = 2024;
    stage.recordsEmptying = false;
    stage.describeMembers = [&stage] {
        std::string map;
        for (const auto& [from, to] : stage.exporter.RenameMap)
            map.append(" ").append(from).append("=").append(to);
        return std::vector<std::string>{"RenameMap" + map,
                                        "FragmentCount " + std::to_string(stage.exporter.FragmentCount)};
    };
}

/// Every attribute that a file can have, in two fragments.
SceneGrid allAttributes(LasStage& stage, double time = 0) {
    SceneGrid grid = stage.grid(time, "a");
    grid.skeleton();
    for (const std::string fragment : {"f0", "f1"}) {
        grid.positions(fragment, 2, fragment == "f0" ? 0 : 5)
            .data<float>("Amplitude", fragment, {1.25F, 2})
            .data<unsigned char>("Classification", fragment, {2, 40})
            .data<unsigned char>("EdgeOfFlightLine", fragment, {1, 0})
            .data<double>("GPSTime", fragment, {1.5, 2.5})
            .data<unsigned short>("Intensity", fragment, {1, 65535})
            .data<unsigned char>("NumberOfReturns", fragment, {2, 3})
            .data<unsigned short>("PointSourceID", fragment, {11, 12})
            .data<Color>("RGB", fragment, {Color{{{1, 2, 3}}}, Color{{{4, 5, 255}}}})
            .data<float>("Reflectance", fragment, {-1.5F, 3})
            .data<unsigned char>("ReturnNumber", fragment, {1, 2})
            .data<short>("ScanAngle", fragment, {-100, 100})
            .data<unsigned char>("ScanDirectionFlag", fragment, {0, 1})
            .data<unsigned char>("UserData", fragment, {7, 8})
            .data<int>("Unknown", fragment, {1, 2});
    }
    return grid;
}

template <int version>
void ofVersion(LasStage& stage) {
    allAttributes(stage);
    stage.exporter.Version = version;
}

void compressed(LasStage& stage) {
    allAttributes(stage);
    stage.exporter.uncompressed = false;
}

void compressedTiles(LasStage& stage) {
    allAttributes(stage);
    stage.exporter.uncompressed = false;
    stage.exporter.tiles = true;
}

void tiles(LasStage& stage) {
    allAttributes(stage);
    allAttributes(stage, 1);
    stage.exporter.tiles = true;
}

void tilesOfAllKinds(LasStage& stage) {
    Common::fieldsThatLackFragments(stage);
    stage.grid(0, "b")
        .skeleton()
        .positions("f2", 2)
        .lattice("f3", {{2, 2, 1}})
        .positions("f4", 0)
        .positions("f5", 1);
    stage.exporter.tiles = true;
}

void tilesInAVersionWithoutFiles(LasStage& stage) {
    allAttributes(stage);
    stage.exporter.tiles = true;
    stage.exporter.Version = 1;
}

void tilesAndAReporterThatRefusesSome(LasStage& stage) {
    Common::reporterThatRefusesSome(stage);
    stage.exporter.tiles = true;
}

void tilesAndIntensitiesThatThrow(LasStage& stage) {
    Common::intensitiesThatThrow(stage);
    stage.exporter.tiles = true;
}

void tilesAndFieldFilterThatThrows(LasStage& stage) {
    Common::fieldFilterThatThrows(stage);
    stage.exporter.tiles = true;
}

void tilesAndCreatorsThatGiveNothing(LasStage& stage) {
    Common::creatorsThatGiveNothing(stage);
    stage.exporter.tiles = true;
}

void tilesAndWrongElementTypes(LasStage& stage) {
    Common::wrongElementTypes(stage);
    stage.exporter.tiles = true;
}

void tilesAndLatticeOnceCreated(LasStage& stage) {
    Common::latticeOnceCreated(stage);
    stage.exporter.tiles = true;
}

/// The second tile's file is opened while the first tile has it open; its bytes tell.
void tilesOfOneName(LasStage& stage) {
    stage.grid(0, "a").skeleton().positions("", 4).positions("Unfragmented", 1, 20);
    stage.exporter.tiles = true;
}

void tilesAndPositionsRejected(LasStage& stage) {
    Common::fieldFilterThatAcceptsOnce(stage);
    stage.exporter.tiles = true;
}

void pointSourceID(LasStage& stage) {
    allAttributes(stage);
    stage.exporter.PointSourceID = 77;
}

void renamedFieldsInConflict(LasStage& stage) {
    stage.grid(0, "a")
        .skeleton()
        .positions("f0", 2)
        .positions("f1", 2, 5)
        .data<unsigned short>("A", "f0", {1, 2})
        .data<unsigned short>("B", "f0", {3, 4})
        .data<unsigned short>("B", "f1", {5, 6})
        .data<unsigned char>("C", "f0", {7, 8})
        .data<unsigned short>("Intensity", "f0", {9, 10})
        .data<unsigned short>("Intensity", "f1", {11, 12})
        .data<unsigned char>("UserData", "f0", {13, 14});
    stage.exporter.RenameMap = {{"Positions", "Positions"},
                                {"A", "Intensity"},
                                {"B", "Intensity"},
                                {"C", "UserData"},
                                {"UserData", "A"}};
}

void renamedFieldsInTurn(LasStage& stage) {
    stage.grid(0, "a")
        .skeleton()
        .positions("f0", 2)
        .data<unsigned short>("Intensity", "f0", {1, 2})
        .data<unsigned short>("PointSourceID", "f0", {3, 4})
        .data<float>("X", "f0", {5, 6})
        .data<float>("Reflectance", "f0", {7, 8});
    stage.exporter.RenameMap = {{"Intensity", "PointSourceID"},
                                {"PointSourceID", "Intensity"},
                                {"X", "Reflectance"},
                                {"Reflectance", "Amplitude"}};
}

void positionsByAnotherName(LasStage& stage) {
    stage.grid(0, "a").skeleton().positions("f0", 2).data("Other", "f0", SceneGrid::slope(2, 70));
    stage.exporter.RenameMap = {{"Other", "Positions"}, {"Positions", "Nothing"}};
    Common::survey(stage, 0, "b");
}

void sameFieldInTwoRepresentations(LasStage& stage) {
    stage.grid(0, "a")
        .skeleton()
        .positions("f0", 2)
        .data<unsigned short>("Intensity", "f0", {1, 2})
        .chart("zone")
        .positions("f0", 2, 50)
        .data<unsigned short>("Intensity", "f0", {3, 4})
        .data<unsigned short>("PointSourceID", "f0", {5, 6});
}

void extraAttributesOfOtherTypes(LasStage& stage) {
    stage.grid(0, "a")
        .skeleton()
        .positions("f0", 2)
        .data<double>("Reflectance", "f0", {1, 2})
        .data<unsigned short>("Amplitude", "f0", {3, 4})
        .data<unsigned short>("RGB", "f0", {5, 6});
}

void extraAttributesInAnotherChart(LasStage& stage) {
    stage.grid(0, "a")
        .skeleton()
        .positions("f0", 2)
        .chart("zone")
        .data<float>("Reflectance", "f0", {1, 2})
        .data<Color>("RGB", "f0", {Color{{{1, 2, 3}}}, Color{{{4, 5, 255}}}});
}

void attributesOfADeeperSkeleton(LasStage& stage) {
    // The exporter looks for the highest skeleton twice, with two bounds.
    stage.grid(0, "a")
        .skeleton({3})
        .positions("f0", 2)
        .data<unsigned short>("Intensity", "f0", {1, 2})
        .skeleton({200000000})
        .positions("f0", 3, 40)
        .data<float>("Reflectance", "f0", {5, 6, 7});
}

void skeletonsWithRefLevel(LasStage& stage) {
    Common::manySkeletons(stage);
    stage.exporter.RefLevel = 0;
}

void returnNumbersBeyondTheFormat(LasStage& stage) {
    stage.grid(0, "a")
        .skeleton()
        .positions("f0", 3)
        .positions("f1", 2)
        .data<unsigned char>("ReturnNumber", "f0", {5, 16, 200})
        .data<unsigned char>("NumberOfReturns", "f0", {16, 3, 255})
        .data<unsigned char>("ReturnNumber", "f1", {0, 17});
    Common::survey(stage, 0, "b");
}

void shortArrays(LasStage& stage) {
    stage.grid(0, "a")
        .skeleton()
        .positions("f0", 4)
        .data<unsigned short>("Intensity", "f0", {1, 2})
        .data<unsigned char>("Classification", "f0", {})
        .data<unsigned short>("Amplitude", "f0", {9})
        .data<unsigned short>("PointSourceID", "f0", {1, 2, 3, 4, 5, 6});
}

void folderThatIsMissing(LasStage& stage) {
    allAttributes(stage);
    Common::survey(stage, 1, "b");
    stage.exporter.OutputPath = stage.path("missing/cloud.las");
}

void pathWithoutDot(LasStage& stage) {
    Common::survey(stage, 0, "a");
    stage.exporter.OutputPath = "cloud";
}

void pathWithDotInItsFolder(LasStage& stage) {
    Common::survey(stage, 0, "a");
    stage.exporter.OutputPath = "run.3/cloud";
    stage.exporter.tiles = true;
}

void reporterThatTurnsTilesOn(LasStage& stage) {
    allAttributes(stage);
    allAttributes(stage, 1);
    stage.onProgress = [&stage](int nth) {
        stage.exporter.tiles = nth == 2 || nth == 3;
        return true;
    };
}

void reporterThatChangesSettings(LasStage& stage) {
    for (const double time : {0.0, 1.0, 2.0})
        allAttributes(stage, time);
    stage.exporter.tiles = true;
    stage.onProgress = [&stage](int nth) {
        stage.exporter.Version = 2 + nth % 3;
        stage.exporter.PointSourceID = nth;
        stage.exporter.Day = nth;
        stage.exporter.Year = 2000 + nth;
        stage.exporter.OutputPath = stage.path("report" + std::to_string(nth) + ".las");
        if (nth == 3)
            stage.exporter.RenameMap = {{"Positions", "Positions"}, {"UserData", "Classification"}};
        if (nth == 5)
            stage.exporter.RenameMap.clear();
        return true;
    };
}

void untiledChangesOfSettings(LasStage& stage) {
    allAttributes(stage);
    stage.onProgress = [&stage](int nth) {
        stage.exporter.Version = 2 + nth % 3;
        stage.exporter.PointSourceID = nth;
        stage.exporter.OutputPath = stage.path("report" + std::to_string(nth) + ".las");
        return true;
    };
}

/// Changes settings each time that the host has been asked, one after the other.
void settingsThatChangeAtEachEvent(LasStage& stage) {
    allAttributes(stage);
    allAttributes(stage, 1);
    stage.exporter.tiles = true;
    for (std::size_t event = 1; event <= 60; ++event) {
        stage.recorder.actions[event] = [&stage, event] {
            stage.exporter.OutputPath = stage.path("event" + std::to_string(event) + ".las");
            stage.exporter.Version = 2 + static_cast<int>(event % 3);
            stage.exporter.PointSourceID = static_cast<int>(event);
            stage.exporter.Day = static_cast<int>(event);
            stage.exporter.RenameMap["UserData"] = event % 2 == 0 ? "UserData" : "Classification";
        };
    }
}

void fieldsThatChangeTheRenameMap(LasStage& stage) {
    allAttributes(stage);
    stage.onField = [&stage](const std::string& name, int nth) {
        if (name == "Intensity")
            stage.exporter.RenameMap["PointSourceID"] = nth == 1 ? "Intensity" : "Nothing";
        return true;
    };
}

void creatorThatTurnsTilesOff(LasStage& stage) {
    Common::survey(stage, 0, "a");
    stage.exporter.tiles = true;
    // Parameters, time, access, grid, two creations for the box, report, and the first creation of the tile.
    stage.recorder.actions[8] = [&stage] { stage.exporter.tiles = false; };
    stage.recorder.actions[9] = [&stage] { stage.exporter.uncompressed = false; };
}

const std::vector<Scenario<Las>> ownScenarios{
    {"version2", ofVersion<2>},
    {"version3", ofVersion<3>},
    {"version4", ofVersion<4>},
    {"versionUnknown", ofVersion<5>},
    {"compressed", compressed},
    {"compressedTiles", compressedTiles},
    {"tiles", tiles},
    {"tilesOfAllKinds", tilesOfAllKinds},
    {"tilesInAVersionWithoutFiles", tilesInAVersionWithoutFiles},
    {"tilesAndAReporterThatRefusesSome", tilesAndAReporterThatRefusesSome},
    {"tilesAndIntensitiesThatThrow", tilesAndIntensitiesThatThrow},
    {"tilesAndFieldFilterThatThrows", tilesAndFieldFilterThatThrows},
    {"tilesAndCreatorsThatGiveNothing", tilesAndCreatorsThatGiveNothing},
    {"tilesAndWrongElementTypes", tilesAndWrongElementTypes},
    {"tilesAndLatticeOnceCreated", tilesAndLatticeOnceCreated},
    {"tilesOfOneName", tilesOfOneName},
    {"tilesAndPositionsRejected", tilesAndPositionsRejected},
    {"pointSourceID", pointSourceID},
    {"renamedFieldsInConflict", renamedFieldsInConflict},
    {"renamedFieldsInTurn", renamedFieldsInTurn},
    {"positionsByAnotherName", positionsByAnotherName},
    {"sameFieldInTwoRepresentations", sameFieldInTwoRepresentations},
    {"extraAttributesOfOtherTypes", extraAttributesOfOtherTypes},
    {"extraAttributesInAnotherChart", extraAttributesInAnotherChart},
    {"attributesOfADeeperSkeleton", attributesOfADeeperSkeleton},
    {"skeletonsWithRefLevel", skeletonsWithRefLevel},
    {"returnNumbersBeyondTheFormat", returnNumbersBeyondTheFormat},
    {"shortArrays", shortArrays},
    {"folderThatIsMissing", folderThatIsMissing},
    {"pathWithoutDot", pathWithoutDot},
    {"pathWithDotInItsFolder", pathWithDotInItsFolder},
    {"reporterThatTurnsTilesOn", reporterThatTurnsTilesOn},
    {"reporterThatChangesSettings", reporterThatChangesSettings},
    {"untiledChangesOfSettings", untiledChangesOfSettings},
    {"settingsThatChangeAtEachEvent", settingsThatChangeAtEachEvent},
    {"fieldsThatChangeTheRenameMap", fieldsThatChangeTheRenameMap},
    {"creatorThatTurnsTilesOff", creatorThatTurnsTilesOff},
};

class LasRecord : public ::testing::TestWithParam<Scenario<Las>> {};

TEST_P(LasRecord, StaysAsRecorded) {
    LasStage stage;
    prepare(stage);
    GetParam().arrange(stage);
    stage.run();
    expectRecorded("las/" + upperCamelCase(GetParam().name), stage.recorder.lines());
}

INSTANTIATE_TEST_SUITE_P(Run, LasRecord,
                         ::testing::ValuesIn(together(Common::scenarios<Las>(), ownScenarios)), nameOf<Las>);

TEST(LasRecords, EachHasItsScenario) {
    expectNoOtherRecords("las", together(Common::scenarios<Las>(), ownScenarios));
}

void changeSetting(LasStage& stage, Dice& dice) {
    Las& exporter = stage.exporter;
    switch (dice.below(9)) {
    case 0:
        exporter.tiles = !exporter.tiles;
        break;
    case 1:
        exporter.Version = dice.pick({2, 3, 4, 4, 1});
        break;
    case 2:
        exporter.PointSourceID = dice.pick({0, 9, 70000, -1});
        break;
    case 3:
        exporter.OutputPath = stage.path(dice.pick({"cloud.las", "other.x", "plain", "missing/cloud.las"}));
        break;
    case 4:
        exporter.Day = static_cast<int>(1 + dice.below(300));
        break;
    case 5:
        exporter.RefLevel = dice.pick({-2, -1, 0, 2});
        break;
    case 6:
        exporter.RenameMap.clear();
        break;
    case 7:
        exporter.RenameMap["Other"] = dice.pick({"Intensity", "Positions", "UserData", "Reflectance"});
        break;
    default:
        exporter.RenameMap[dice.pick({"Intensity", "Amplitude", "UserData"})] =
            dice.pick({"Intensity", "UserData", "Amplitude", "Nothing", "PointSourceID"});
    }
}

TEST(LasRecords, OfRandomRunsStayAsTheyAre) {
    expectRandomRunsRecorded<Las>("las-random", {{{"Positions", {"point", "fixed3d"}, 95},
                                                  {"Intensity", {"uint16", "int16", "uint8"}, 60},
                                                  {"Other", {"uint16", "point", "float32", "uint8"}, 30},
                                                  {"Classification", {"uint8", "int8"}, 30},
                                                  {"ReturnNumber", {"uint8", "int32"}, 30},
                                                  {"GPSTime", {"float64", "float32"}, 30},
                                                  {"UserData", {"uint8", "uint16"}, 30},
                                                  {"RGB", {"rgb8", "uint8"}, 25},
                                                  {"Reflectance", {"float32", "float64"}, 25},
                                                  {"Amplitude", {"uint16", "float32", "float64"}, 25}},
                                                 10,
                                                 prepare,
                                                 changeSetting});
}

} // namespace
