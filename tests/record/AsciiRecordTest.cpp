// SPDX-License-Identifier: Apache-2.0
#include "ascii/ExportPointCloudToASCII.hpp"
#include "record/commonScenarios.hpp"
#include "record/randomScene.hpp"
#include "record/scenarioNames.hpp"

using namespace Record;

namespace {

using Ascii = ExportLib::ExportPointCloudToASCII;
using AsciiStage = Stage<Ascii>;
using Point = Geom::PhysicalSpace::point;

// Not the current folder, which is used where OutputPath is not a folder.
void prepare(AsciiStage& stage) {
    stage.exporter.OutputPath = stage.path("root");
    std::filesystem::create_directory(stage.exporter.OutputPath);
}

void everyElementType(AsciiStage& stage) {
    SceneGrid grid = stage.grid(0, "a");
    grid.skeleton().positions("f0", 2);
    Dice dice(1);
    for (const char* const type :
         {"vector", "fixed3d", "bivector3d", "bivector3f", "rgb8", "float32", "float64", "float80", "int8",
          "uint8", "int16", "uint16", "int32", "uint32", "int64", "uint64"}) {
        Sheaf::visitElementName(type, [&](auto tag) {
            grid.data(type, "f0", randomElements<typename decltype(tag)::type>(dice, 2));
        });
    }
}

/// Fields of the same types on a lattice.
void everyElementTypeOnALattice(AsciiStage& stage) {
    SceneGrid grid = stage.grid(0, "a");
    grid.skeleton()
        .lattice("f0", {{2, 1, 1}})
        .data<unsigned char>("CellType", "f0", Sheaf::Extents{2, 1, 1}, {1, 2});
    Dice dice(2);
    for (const char* const type : {"point", "vector", "bivector3f", "rgb8", "float32", "float64", "uint8",
                                   "int16", "uint16", "int32", "uint64"}) {
        Sheaf::visitElementName(type, [&](auto tag) {
            grid.data(type, "f0", Sheaf::Extents{2, 1, 1},
                      randomElements<typename decltype(tag)::type>(dice, 2));
        });
    }
}

template <int level, bool append = false>
void refLevel(AsciiStage& stage) {
    Common::manySkeletons(stage);
    Common::survey(stage, 1, "b");
    stage.exporter.RefLevel = level;
    stage.exporter.Append = append;
}

template <int level>
void markedHighestSkeleton(AsciiStage& stage) {
    Common::highestSkeletonIsMarked(stage);
    stage.exporter.RefLevel = level;
}

void append(AsciiStage& stage) {
    Common::severalSlicesAndGrids(stage);
    stage.exporter.Append = true;
}

void severalChartsAppended(AsciiStage& stage) {
    Common::severalCharts(stage);
    stage.exporter.Append = true;
    stage.exporter.RefLevel = -2;
}

SceneGrid lattice(AsciiStage& stage, double time = 0, const std::string& name = "a") {
    SceneGrid grid = stage.grid(time, name);
    grid.skeleton()
        .lattice("f0", {{3, 2, 1}})
        .data<double>("Height", "f0", Sheaf::Extents{3, 2, 1}, {1, 2, 3, 4, 5, 6})
        .data<unsigned char>("CellType", "f0", Sheaf::Extents{3, 2, 1}, {0, 1, 2, 3, 4, 5});
    return grid;
}

void uniformGrid(AsciiStage& stage) {
    lattice(stage);
    lattice(stage, 1).positions("f1", 2).data<double>("Height", "f1", {7, 8});
    stage.exporter.Precision = 2;
}

void uniformGridAppended(AsciiStage& stage) {
    lattice(stage).overlaps("f0", {{1, 0, 0}}, {{0, 1, 0}});
    lattice(stage, 1);
    stage.exporter.Append = true;
    stage.exporter.TileSuffix = true;
}

void uniformGridWithTileSuffix(AsciiStage& stage) {
    lattice(stage).overlaps("f0", {{1, 1, 0}}, {{1, 0, 0}});
    stage.exporter.TileSuffix = true;
}

void uniformGridWithCellTypeFilter(AsciiStage& stage) {
    lattice(stage);
    stage.exporter.CellTypeFilter = {};
    stage.exporter.CellTypeFilter.add(1, 2);
    stage.exporter.CellTypeFilter.add(5, 9);
}

void overlapsLargerThanTheGrid(AsciiStage& stage) {
    lattice(stage).overlaps("f0", {{2, 0, 0}}, {{2, 0, 0}});
}

void gridThatIsNotFlat(AsciiStage& stage) {
    stage.grid(0, "a")
        .skeleton()
        .lattice("f0", {{2, 1, 2}})
        .data<float>("Height", "f0", Sheaf::Extents{2, 1, 2}, {1, 2, 3, 4})
        .data<unsigned char>("CellType", "f0", Sheaf::Extents{2, 1, 2}, {1, 1, 1, 1});
}

void gridThatIsEmpty(AsciiStage& stage) {
    stage.grid(0, "a")
        .skeleton()
        .lattice("f0", {{0, 2, 1}})
        .data<float>("Height", "f0", Sheaf::Extents{0, 2, 1}, {})
        .data<unsigned char>("CellType", "f0", Sheaf::Extents{0, 2, 1}, {});
}

void cellTypesThatAreMissing(AsciiStage& stage) {
    const auto values = [](SceneGrid& grid) -> SceneGrid& {
        return grid.skeleton()
            .lattice("f0", {{2, 1, 1}})
            .data<float>("Height", "f0", Sheaf::Extents{2, 1, 1}, {1, 2});
    };
    SceneGrid none = stage.grid(0, "a without a field");
    values(none);
    SceneGrid elsewhere = stage.grid(0, "b in another fragment");
    values(elsewhere).data<unsigned char>("CellType", "f1", Sheaf::Extents{2, 1, 1}, {1, 1});
    SceneGrid wrongType = stage.grid(0, "c of another type");
    values(wrongType).data<unsigned short>("CellType", "f0", Sheaf::Extents{2, 1, 1}, {1, 1});
    SceneGrid small = stage.grid(0, "d too few");
    values(small).data<unsigned char>("CellType", "f0", Sheaf::Extents{1, 1, 1}, {1});
    SceneGrid list = stage.grid(0, "e in a list");
    values(list).data<unsigned char>("CellType", "f0", {1, 1});
    SceneGrid nothing = stage.grid(0, "f null");
    values(nothing).scripted("CellType", "f0", typeid(unsigned char), std::nullopt, {{nullptr}});
    stage.onField = [](const std::string& name, int) { return name == "Height"; };
}

void cellTypesByAnotherName(AsciiStage& stage) {
    lattice(stage).data<unsigned char>("Kind", "f0", Sheaf::Extents{3, 2, 1}, {1, 1, 1, 1, 1, 1});
    stage.exporter.FilterField = "Kind";
}

void cellTypesThatThrow(AsciiStage& stage) {
    stage.grid(0, "a")
        .skeleton()
        .lattice("f0", {{2, 1, 1}})
        .data<float>("Height", "f0", Sheaf::Extents{2, 1, 1}, {1, 2})
        .scripted("CellType", "f0", typeid(unsigned char), Sheaf::Extents{2, 1, 1}, {{nullptr, true}});
    stage.onField = [](const std::string& name, int) { return name == "Height"; };
}

void valuesThatDoNotFit(AsciiStage& stage) {
    const Sheaf::Extents flat{2, 1, 1};
    stage.grid(0, "a")
        .skeleton()
        .lattice("f0", {{2, 1, 1}})
        .data<unsigned char>("CellType", "f0", flat, {1, 1})
        .data<float>("List", "f0", {1, 2})
        .data<float>("Small", "f0", Sheaf::Extents{1, 1, 1}, {1})
        .scripted("Null", "f0", typeid(float), flat, {{nullptr}})
        .scripted("Other", "f0", typeid(float), flat, {{Sheaf::makeArray(flat, std::vector<double>{1, 2})}});
}

void tables(AsciiStage& stage) {
    const std::vector<float> six{1, 2, 3, 4, 5, 6};
    stage.grid(0, "a")
        .skeleton()
        .positions("f0", 6)
        .data<float>("Table", "f0", Sheaf::Extents{3, 2}, six)
        .data<float>("Cube", "f0", Sheaf::Extents{3, 1, 2}, six)
        .scripted("Promised", "f0", typeid(float), Sheaf::Extents{3, 2}, {{Sheaf::makeArray(six)}})
        .scripted("Denied", "f0", typeid(float), std::nullopt,
                  {{Sheaf::makeArray(Sheaf::Extents{3, 2}, six)}})
        .scripted("Less", "f0", typeid(float), Sheaf::Extents{2, 2},
                  {{Sheaf::makeArray(Sheaf::Extents{3, 2}, six)}});
}

void rootThatIsNotAFolder(AsciiStage& stage) {
    Common::survey(stage, 0, "a");
    stage.exporter.OutputPath = stage.path("file");
    Support::writeBytes(stage.exporter.OutputPath, "here before");
}

void rootThatIsMissing(AsciiStage& stage) {
    Common::survey(stage, 0, "a");
    Common::survey(stage, 1, "b");
    stage.exporter.OutputPath = stage.path("missing");
    stage.onTime = [&stage](double, int) {
        stage.exporter.OutputPath = stage.path("root");
        return true;
    };
}

void folderThatCannotBeMade(AsciiStage& stage) {
    Common::survey(stage, 0, "a").data<float>("Blocked/Height", "f0", {1, 2, 3});
    Support::writeBytes(stage.path("root/Blocked"), "a file");
}

void fileThatCannotBeOpened(AsciiStage& stage) {
    Common::survey(stage, 0, "a");
    std::filesystem::create_directories(stage.path("root/Intensity/f0.asc"));
}

void filesThatAreThereAlready(AsciiStage& stage) {
    lattice(stage);
    std::filesystem::create_directories(stage.path("root/Height"));
    Support::writeBytes(stage.path("root/Height/f0.grd"), "here before");
}

void namesThatLookLikeOthers(AsciiStage& stage) {
    stage.grid(0, "a")
        .skeleton()
        .positions("Positions", 2)
        .positions("f.0", 2)
        .positions("x/y", 2)
        .data<float>("Height", "Positions", {1, 2});
}

/// Yes while the fields of the grid are counted, no later; and the other way round.
template <bool first>
void fieldFilterThatKnowsThePass(AsciiStage& stage) {
    Common::survey(stage, 0, "a");
    stage.onField = [](const std::string&, int nth) { return (nth <= 2) == first; };
}

void reporterThatChangesSettings(AsciiStage& stage) {
    Common::manySkeletons(stage);
    lattice(stage, 0, "b");
    lattice(stage, 1, "b");
    stage.onProgress = [&stage](int nth) {
        constexpr int levels[] = {-2, -1, 0, 2};
        stage.exporter.RefLevel = levels[nth % 4];
        stage.exporter.Append = nth % 3 == 0;
        stage.exporter.TileSuffix = nth % 2 == 0;
        stage.exporter.Precision = static_cast<unsigned>(nth % 5);
        stage.exporter.OutputPath = stage.path("elsewhere");
        return true;
    };
}

/// Changes settings each time that the host has been asked; what a file looks like tells which of them
/// counted.
void settingsThatChangeAtEachEvent(AsciiStage& stage) {
    lattice(stage);
    lattice(stage, 1).data<unsigned char>("Kind", "f0", Sheaf::Extents{3, 2, 1}, {9, 1, 1, 1, 1, 9});
    for (std::size_t event = 1; event <= 60; ++event) {
        stage.recorder.actions[event] = [&stage, event] {
            stage.exporter.Precision = static_cast<unsigned>(event % 7);
            stage.exporter.CellTypeFilter = {};
            stage.exporter.CellTypeFilter.add(0, static_cast<double>(event % 6));
            stage.exporter.FilterField = event % 4 == 0 ? "Kind" : "CellType";
            stage.exporter.TileSuffix = event % 3 == 0;
        };
    }
}

void creatorsThatChangeAppend(AsciiStage& stage) {
    Common::survey(stage, 0, "a");
    Common::survey(stage, 1, "b");
    for (std::size_t event = 1; event <= 60; ++event)
        stage.recorder.actions[event] = [&stage, event] { stage.exporter.Append = event % 3 != 0; };
}

const std::vector<Scenario<Ascii>> ownScenarios{
    {"everyElementType", everyElementType},
    {"everyElementTypeOnALattice", everyElementTypeOnALattice},
    {"refLevelMinusTwo", refLevel<-2>},
    {"refLevelMinusTwoAppended", refLevel<-2, true>},
    {"refLevelMinusThree", refLevel<-3>},
    {"refLevelZero", refLevel<0>},
    {"refLevelTwo", refLevel<2>},
    {"refLevelTwoAppended", refLevel<2, true>},
    {"refLevelSeven", refLevel<7>},
    {"markedHighestSkeletonAtItsLevel", markedHighestSkeleton<4>},
    {"markedHighestSkeletonAmongAll", markedHighestSkeleton<-2>},
    {"append", append},
    {"severalChartsAppended", severalChartsAppended},
    {"uniformGrid", uniformGrid},
    {"uniformGridAppended", uniformGridAppended},
    {"uniformGridWithTileSuffix", uniformGridWithTileSuffix},
    {"uniformGridWithCellTypeFilter", uniformGridWithCellTypeFilter},
    {"overlapsLargerThanTheGrid", overlapsLargerThanTheGrid},
    {"gridThatIsNotFlat", gridThatIsNotFlat},
    {"gridThatIsEmpty", gridThatIsEmpty},
    {"cellTypesThatAreMissing", cellTypesThatAreMissing},
    {"cellTypesByAnotherName", cellTypesByAnotherName},
    {"cellTypesThatThrow", cellTypesThatThrow},
    {"valuesThatDoNotFit", valuesThatDoNotFit},
    {"tables", tables},
    {"rootThatIsNotAFolder", rootThatIsNotAFolder},
    {"rootThatIsMissing", rootThatIsMissing},
    {"folderThatCannotBeMade", folderThatCannotBeMade},
    {"fileThatCannotBeOpened", fileThatCannotBeOpened},
    {"filesThatAreThereAlready", filesThatAreThereAlready},
    {"namesThatLookLikeOthers", namesThatLookLikeOthers},
    {"fieldFilterThatKnowsTheFirstPass", fieldFilterThatKnowsThePass<true>},
    {"fieldFilterThatKnowsTheSecondPass", fieldFilterThatKnowsThePass<false>},
    {"reporterThatChangesSettings", reporterThatChangesSettings},
    {"settingsThatChangeAtEachEvent", settingsThatChangeAtEachEvent},
    {"creatorsThatChangeAppend", creatorsThatChangeAppend},
};

class AsciiRecord : public ::testing::TestWithParam<Scenario<Ascii>> {};

TEST_P(AsciiRecord, StaysAsRecorded) {
    AsciiStage stage;
    prepare(stage);
    GetParam().arrange(stage);
    stage.run();
    expectRecorded("ascii/" + upperCamelCase(GetParam().name), stage.recorder.lines());
}

INSTANTIATE_TEST_SUITE_P(Run, AsciiRecord,
                         ::testing::ValuesIn(together(Common::scenarios<Ascii>(), ownScenarios)),
                         nameOf<Ascii>);

TEST(AsciiRecords, EachHasItsScenario) {
    expectNoOtherRecords("ascii", together(Common::scenarios<Ascii>(), ownScenarios));
}

void changeSetting(AsciiStage& stage, Dice& dice) {
    Ascii& exporter = stage.exporter;
    switch (dice.below(7)) {
    case 0:
        exporter.RefLevel = dice.pick({-2, -2, -1, 0, 1, 2});
        break;
    case 1:
        exporter.Precision = dice.pick({0U, 1U, 3U, 12U});
        break;
    case 2:
        exporter.Append = !exporter.Append;
        break;
    case 3:
        exporter.TileSuffix = !exporter.TileSuffix;
        break;
    case 4:
        exporter.FilterField = dice.pick({"CellType", "CellType", "Class", "Nothing"});
        break;
    case 5:
        exporter.OutputPath = stage.path(dice.pick({"root", "missing"}));
        break;
    default:
        exporter.CellTypeFilter = {};
        exporter.CellTypeFilter.add(0, static_cast<double>(dice.below(100)));
    }
}

TEST(AsciiRecords, OfRandomRunsStayAsTheyAre) {
    expectRandomRunsRecorded<Ascii>("ascii-random", {{{"Positions", {"point", "fixed3d"}, 95},
                                                      {"CellType", {"uint8", "int8"}, 70},
                                                      {"Class", {"uint8", "int32", "int16"}, 40},
                                                      {"Height", {"float64", "float32", "float80"}, 60},
                                                      {"Color", {"rgb8", "vector", "bivector3f"}, 30},
                                                      {"Count", {"uint32", "uint64", "int64", "uint16"}, 30}},
                                                     50,
                                                     prepare,
                                                     changeSetting});
}

} // namespace
