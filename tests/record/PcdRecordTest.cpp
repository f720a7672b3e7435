// SPDX-License-Identifier: Apache-2.0
#include "pcd/ExportPointCloudToPCD.hpp"
#include "record/commonScenarios.hpp"
#include "record/randomScene.hpp"
#include "record/scenarioNames.hpp"

using namespace Record;

namespace {

using Pcd = ExportLib::ExportPointCloudToPCD;
using PcdStage = Stage<Pcd>;

void prepare(PcdStage& stage) {
    stage.exporter.OutputPath = stage.path("cloud.pcd");
}

template <int level>
void refLevel(PcdStage& stage) {
    Common::manySkeletons(stage);
    Common::survey(stage, 1, "b");
    stage.exporter.RefLevel = level;
}

void intensitiesThatDoNotMatch(PcdStage& stage) {
    stage.grid(0, "a").skeleton().positions("f0", 3).positions("f1", 2).data<unsigned short>("Intensity",
                                                                                             "f0", {1, 2, 3});
}

void intensitiesOfOtherFragments(PcdStage& stage) {
    // As many intensities as positions, though of other fragments: only the numbers count.
    stage.grid(0, "a").skeleton().positions("f0", 3).positions("f1", 2).data<unsigned short>(
        "Intensity", "f2", {1, 2, 3, 4, 5});
}

void intensitiesOnly(PcdStage& stage) {
    Common::survey(stage, 0, "a");
    Common::survey(stage, 0, "b");
    stage.onField = [](const std::string& name, int nth) { return name == "Intensity" || nth <= 2; };
}

void nothingOfALaterGrid(PcdStage& stage) {
    Common::survey(stage, 0, "a");
    stage.grid(0, "b").skeleton().lattice("f0", {{2, 2, 1}});
    stage.grid(1, "c").skeleton().positions("f0", 0);
}

void pointsThatAreThinned(PcdStage& stage) {
    Common::survey(stage, 0, "a");
    stage.exporter.CellSize = 4;
}

void pointsThatAreThinnedAndCounted(PcdStage& stage) {
    Common::survey(stage, 0, "a");
    stage.exporter.CellSize = 4;
    stage.exporter.ExactCounts = true;
}

void coordinatesBelowZero(PcdStage& stage) {
    Common::survey(stage, 0, "a", -1000);
    stage.exporter.Precision = 12;
}

void folderThatIsMissing(PcdStage& stage) {
    Common::survey(stage, 0, "a");
    Common::survey(stage, 1, "b");
    stage.exporter.OutputPath = stage.path("missing/cloud.pcd");
}

void fieldsThatChangeSettings(PcdStage& stage) {
    for (const double time : {0.0, 1.0, 2.0})
        Common::survey(stage, time, "a", 20 * time);
    stage.onField = [&stage](const std::string&, int nth) {
        stage.exporter.Precision = nth;
        stage.exporter.CellSize = nth;
        stage.exporter.ExactCounts = nth > 4;
        stage.exporter.OutputPath = stage.path("field" + std::to_string(nth) + ".pcd");
        return true;
    };
}

void fieldsThatChangeTheRefLevel(PcdStage& stage) {
    Common::manySkeletons(stage);
    stage.exporter.RefLevel = 0;
    stage.onField = [&stage](const std::string&, int nth) {
        stage.exporter.RefLevel = nth < 3 ? 0 : nth < 5 ? 2 : -1;
        return true;
    };
}

void creatorsThatChangeSettings(PcdStage& stage) {
    Common::survey(stage, 0, "a");
    Common::survey(stage, 1, "b");
    for (std::size_t event = 1; event <= 30; ++event) {
        stage.recorder.actions[event] = [&stage, event] {
            stage.exporter.Precision = static_cast<int>(event);
            stage.exporter.CellSize = static_cast<double>(event) / 8;
            stage.exporter.ExactCounts = event % 2 == 0;
            stage.exporter.OutputPath = stage.path("event" + std::to_string(event) + ".pcd");
        };
    }
}

const std::vector<Scenario<Pcd>> ownScenarios{
    {"refLevelMinusTwo", refLevel<-2>},
    {"refLevelZero", refLevel<0>},
    {"refLevelOne", refLevel<1>},
    {"refLevelTwo", refLevel<2>},
    {"refLevelNine", refLevel<9>},
    {"intensitiesThatDoNotMatch", intensitiesThatDoNotMatch},
    {"intensitiesOfOtherFragments", intensitiesOfOtherFragments},
    {"intensitiesOnly", intensitiesOnly},
    {"nothingOfALaterGrid", nothingOfALaterGrid},
    {"pointsThatAreThinned", pointsThatAreThinned},
    {"pointsThatAreThinnedAndCounted", pointsThatAreThinnedAndCounted},
    {"coordinatesBelowZero", coordinatesBelowZero},
    {"folderThatIsMissing", folderThatIsMissing},
    {"fieldsThatChangeSettings", fieldsThatChangeSettings},
    {"fieldsThatChangeTheRefLevel", fieldsThatChangeTheRefLevel},
    {"creatorsThatChangeSettings", creatorsThatChangeSettings},
};

class PcdRecord : public ::testing::TestWithParam<Scenario<Pcd>> {};

TEST_P(PcdRecord, StaysAsRecorded) {
    PcdStage stage;
    prepare(stage);
    GetParam().arrange(stage);
    stage.run();
    expectRecorded("pcd/" + upperCamelCase(GetParam().name), stage.recorder.lines());
}

INSTANTIATE_TEST_SUITE_P(Run, PcdRecord,
                         ::testing::ValuesIn(together(Common::scenarios<Pcd>(), ownScenarios)), nameOf<Pcd>);

TEST(PcdRecords, EachHasItsScenario) {
    expectNoOtherRecords("pcd", together(Common::scenarios<Pcd>(), ownScenarios));
}

void changeSetting(PcdStage& stage, Dice& dice) {
    Pcd& exporter = stage.exporter;
    switch (dice.below(5)) {
    case 0:
        exporter.RefLevel = dice.pick({-2, -1, 0, 1, 2});
        break;
    case 1:
        exporter.Precision = dice.pick({-1, 0, 3, 8, 17});
        break;
    case 2:
        exporter.CellSize = dice.pick({0.0, 0.1, 2.0, 50.0});
        break;
    case 3:
        exporter.OutputPath = stage.path(dice.pick({"cloud.pcd", "other", "missing/cloud.pcd"}));
        break;
    default:
        exporter.ExactCounts = !exporter.ExactCounts;
    }
}

TEST(PcdRecords, OfRandomRunsStayAsTheyAre) {
    expectRandomRunsRecorded<Pcd>("pcd-random", {{{"Positions", {"point", "fixed3d", "float32"}, 95},
                                                  {"Intensity", {"uint16", "int32", "uint8"}, 80},
                                                  {"Height", {"float64"}, 30}},
                                                 10,
                                                 prepare,
                                                 changeSetting});
}

} // namespace
