// SPDX-License-Identifier: Apache-2.0
#include "ascii/ExportPointCloudToASCII.hpp"

#include "anchor/Error.hpp"
#include "ascii/AsciiBundle.hpp"
#include "support/ConsoleCapture.hpp"

#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using Geom::PhysicalSpace;
using Support::GridBuilder;
using Support::heldArray;
using Support::heldLattice;
using Support::namesIn;
using Support::Points;
using Support::treeOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;
using Ints = std::vector<int>;
using Bytes = std::vector<unsigned char>;

/// Remembers what is reported, and answers as told.
class Reporter final : public Anchor::LoaderProgress {
public:
    using Report = std::tuple<std::string, std::uint64_t, std::uint64_t>;

    bool progress(const std::string& text, std::uint64_t current, std::uint64_t total) override {
        reports.emplace_back(text, current, total);
        return answer;
    }

    std::vector<Report> reports;
    bool answer = true;
};

/// Another working folder for as long as it lives.
class WorkingFolder {
public:
    explicit WorkingFolder(const fs::path& folder) : before_(fs::current_path()) { fs::current_path(folder); }
    ~WorkingFolder() { fs::current_path(before_); }
    WorkingFolder(const WorkingFolder&) = delete;
    WorkingFolder& operator=(const WorkingFolder&) = delete;

private:
    fs::path before_;
};

struct ASCIIExport : ::testing::Test {
    ASCIIExport() {
        exporter.bundleptr = bundle;
        exporter.OutputPath = folder.path().string();
    }

    void run() {
        EXPECT_TRUE(exporter.Run());
        EXPECT_THAT(exporter.Errors, IsEmpty());
    }

    /// Runs the exporter into an empty folder and gives what lies there then.
    std::map<std::string, std::string> exported() {
        for (const auto& entry : fs::directory_iterator(folder.path()))
            fs::remove_all(entry);
        run();
        return treeOf(folder.path());
    }

    /// A grid that has positions of one point without a fragment.
    GridBuilder cloud(double time = 0, const std::string& name = "g", Ints refinement = {}) {
        GridBuilder builder(*bundle, time, name, std::move(refinement));
        builder.field("Positions", "", Points{{1, 2, 3}});
        return builder;
    }

    Support::TemporaryFolder folder;
    Support::ConsoleCapture console;
    Anchor::StrongPtr<Sheaf::Bundle> bundle = Anchor::makeStrong<Sheaf::Bundle>();
    ExportLib::ExportPointCloudToASCII exporter;
};

const std::string onePoint = " 1.000000 2.000000 3.000000\n";

TEST_F(ASCIIExport, ConstructorSetsEveryDefault) {
    EXPECT_EQ(exporter.FilterField, "CellType");
    EXPECT_EQ(exporter.RefLevel, -1);
    EXPECT_EQ(exporter.Precision, 0U);
    EXPECT_FALSE(exporter.Append);
    EXPECT_FALSE(exporter.TileSuffix);
    EXPECT_TRUE(exporter.FlushLines());
    ASSERT_EQ(exporter.CellTypeFilter.ranges().size(), 1U);
    for (int type = 0; type < 256; ++type)
        EXPECT_TRUE(exporter.CellTypeFilter.contains(type));
    EXPECT_TRUE(exporter.CellTypeFilter.contains(std::numeric_limits<double>::lowest()));
    EXPECT_TRUE(exporter.CellTypeFilter.contains(std::numeric_limits<double>::infinity()));
}

TEST_F(ASCIIExport, SecondaryParametersAreLabelValueAndBlankEach) {
    EXPECT_EQ(exporter.printSecondary(), "\nFilterField: CellType \nRefLevel: -1 ");
    exporter.FilterField = "";
    exporter.RefLevel = 12;
    exporter.TileSuffix = true;
    exporter.setFlushLines(false);
    EXPECT_EQ(exporter.printSecondary(), "\nFilterField:  \nRefLevel: 12 ");
}

TEST_F(ASCIIExport, PrecisionAndAppendArePrintedOnlyWhenSet) {
    exporter.Precision = 4294967295U;
    EXPECT_EQ(exporter.printSecondary(), "\nFilterField: CellType \nRefLevel: -1 \nPrecision: 4294967295 ");
    exporter.Append = true;
    EXPECT_EQ(exporter.printSecondary(),
              "\nFilterField: CellType \nRefLevel: -1 \nPrecision: 4294967295 \nAppend modus ");
    exporter.Precision = 0;
    EXPECT_EQ(exporter.printSecondary(), "\nFilterField: CellType \nRefLevel: -1 \nAppend modus ");
}

TEST_F(ASCIIExport, NullOrExpiredBundleIsAnErrorAndNothingStarts) {
    exporter.bundleptr = nullptr;
    EXPECT_FALSE(exporter.Run());
    exporter.bundleptr = bundle;
    bundle.reset();
    EXPECT_FALSE(exporter.Run());
    EXPECT_THAT(exporter.Errors, ElementsAre("bundleptr is null", "bundleptr is null"));
    EXPECT_THAT(console.messages, IsEmpty());
}

TEST_F(ASCIIExport, EmptyBundleIsACompleteRunWithoutAnything) {
    EXPECT_THAT(exported(), IsEmpty());
    EXPECT_THAT(console.messages, IsEmpty());
    EXPECT_THAT(exporter.writtenFiles(), IsEmpty());
}

TEST_F(ASCIIExport, RootThatIsNoFolderBecomesTheWorkingFolderForGood) {
    cloud();
    for (const std::string& root : {folder / "nothing", folder / "file", std::string()}) {
        const Support::TemporaryFolder working;
        const WorkingFolder here(working.path());
        Support::writeBytes(folder / "file", "x");
        exporter.OutputPath = root;
        run();
        EXPECT_EQ(exporter.OutputPath, ".");
        EXPECT_EQ(exporter.printParameters(), "\nOutputPath: . ");
        EXPECT_THAT(treeOf(working.path()), ElementsAre(Pair("Positions/Unfragmented.asc", onePoint)));
    }
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("file"));
}

TEST_F(ASCIIExport, RootThatIsALinkToAFolderIsUsed) {
    cloud();
    fs::create_directory(folder.path() / "there");
    fs::create_directory_symlink("there", folder.path() / "link");
    exporter.OutputPath = folder / "link";
    run();
    EXPECT_THAT(namesIn(folder.path() / "there"), ElementsAre("Positions/Unfragmented.asc"));
}

TEST_F(ASCIIExport, EverySliceInItsTurnIsAnnouncedOnTheConsole) {
    bundle->makeSlice(2.5);
    bundle->makeSlice(-1);
    bundle->makeSlice(1e10);
    bundle->makeSlice(7);
    bundle->removeSlice(7);
    exporter.TimeFilter = {{-5, 100}};
    run();
    EXPECT_THAT(console.messages, ElementsAre(" Data at T=-1", " Data at T=2.5"));
}

TEST_F(ASCIIExport, ReferenceSystemStandsBesideEachGridOfItsOwnFile) {
    GridBuilder(*bundle, 0, "dem")
        .field("Positions", "w", heldLattice({10, 20, 0}, {2, 2, 1}, {3, 1, 1}))
        .field("Height", "w", heldArray<float>({3, 1, 1}, {1.5F, 2, 2.5F}))
        .field("CellType", "w", heldArray<unsigned char>({3, 1, 1}, {1, 0, 3}));
    const auto without = exported();
    exporter.setAdditions(0, "dem", {{}, 0, "PROJCS[...]\n"});
    auto with = exported();
    EXPECT_EQ(with["Height/w.prj"], "PROJCS[...]\n");
    EXPECT_EQ(with["CellType/w.prj"], "PROJCS[...]\n");
    const auto& record = exporter.writtenFiles().back();
    EXPECT_TRUE(record.path.ends_with("Height/w.prj"));
    EXPECT_EQ(record.bytes, 12U);
    EXPECT_EQ(record.items, 1U);
    EXPECT_EQ(record.grid, "dem");
    with.erase("Height/w.prj");
    with.erase("CellType/w.prj");
    EXPECT_EQ(with, without) << "nothing else changes";
    exporter.Append = true;
    for (const auto& [name, text] : exported())
        EXPECT_FALSE(name.ends_with(".prj")) << name;
    exporter.Append = false;
    exporter.setAdditions(0, "dem", {});
    EXPECT_EQ(exported(), without);
}

TEST_F(ASCIIExport, FieldWithoutFragmentsIsNamedUnfragmented) {
    cloud().field("Height", "", std::vector<double>{1.5});
    EXPECT_THAT(exported(), ElementsAre(Pair("Height/Unfragmented.asc", " 1.500000\n"),
                                        Pair("Positions/Unfragmented.asc", onePoint)));
}

TEST_F(ASCIIExport, FieldOfAnElementTypeWithoutWriterIsPassedOverInSilence) {
    cloud().field("Angle", "", std::vector<signed char>{1});
    EXPECT_THAT(exported(), ElementsAre(Pair("Angle/", ""), Pair("Positions/Unfragmented.asc", onePoint)));
    EXPECT_THAT(console.messages, ElementsAre(" Data at T=0"));
    EXPECT_EQ(exporter.writtenFiles().size(), 1U);
}

/// Two refinement levels and one in between, each with two fragments, and a skeleton that is excluded.
void addRefinedGrid(Sheaf::Bundle& bundle, double time, int base) {
    GridBuilder builder(bundle, time, "g", {1, 1, 1});
    const auto fill = [&](int level) {
        builder.field("Positions", "a", Points{{0, 0, 0}})
            .field("Id", "a", Ints{base + level})
            .field("Id", "b", Ints{base + level, base + level});
    };
    fill(1);
    builder.skeleton({2, 2, 2});
    fill(2);
    builder.skeleton({1, 2, 2});
    fill(3);
    builder.skeleton({3, 3, 3}, 1);
    fill(4);
}

const std::string origin = " 0.000000 0.000000 0.000000\n";

TEST_F(ASCIIExport, WithoutAppendAndAtTheHighestLevelEachFragmentIsAFileBelowItsField) {
    addRefinedGrid(*bundle, 0, 10);
    // The excluded skeleton is the reference one, so nothing is left; its fields still count in progress.
    EXPECT_THAT(exported(), IsEmpty());
    GridBuilder(*bundle, 1, "g", {2, 2})
        .field("Positions", "a", Points{{0, 0, 0}})
        .field("Id", "a", Ints{7})
        .field("Id", "b", Ints{8})
        .skeleton({1, 1})
        .field("Id", "a", Ints{9});
    EXPECT_THAT(exported(), ElementsAre(Pair("Id/a.asc", " 7\n"), Pair("Id/b.asc", " 8\n"),
                                        Pair("Positions/a.asc", origin)));
}

TEST_F(ASCIIExport, WithoutAppendAndAtEveryLevelEachSkeletonIsAFolder) {
    addRefinedGrid(*bundle, 0, 10);
    exporter.RefLevel = -2;
    EXPECT_THAT(exported(),
                UnorderedElementsAre(
                    Pair("Id/Skeleton1/a.asc", " 11\n"), Pair("Id/Skeleton1/b.asc", " 11\n 11\n"),
                    Pair("Id/Skeleton2/a.asc", " 12\n"), Pair("Id/Skeleton2/b.asc", " 12\n 12\n"),
                    Pair("Id/Skeleton-1/a.asc", " 13\n"), Pair("Id/Skeleton-1/b.asc", " 13\n 13\n"),
                    Pair("Positions/Skeleton1/a.asc", origin), Pair("Positions/Skeleton2/a.asc", origin),
                    Pair("Positions/Skeleton-1/a.asc", origin)));
}

TEST_F(ASCIIExport, WithoutAppendAndAtOneLevelOnlyThatSkeletonIsWritten) {
    addRefinedGrid(*bundle, 0, 10);
    exporter.RefLevel = 2;
    EXPECT_THAT(exported(), UnorderedElementsAre(Pair("Id/Skeleton2/a.asc", " 12\n"),
                                                 Pair("Id/Skeleton2/b.asc", " 12\n 12\n"),
                                                 Pair("Positions/Skeleton2/a.asc", origin)));
}

TEST_F(ASCIIExport, WithAppendAndAtTheHighestLevelEachFieldIsAFile) {
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", Points{{0, 0, 0}})
        .field("Positions", "b", Points{{1, 2, 3}})
        .field("Id", "a", Ints{7})
        .field("Id", "b", Ints{8});
    exporter.Append = true;
    EXPECT_THAT(exported(),
                ElementsAre(Pair("Id.asc", " 7\n 8\n"), Pair("XYZ_Coordinates.asc", origin + onePoint)));
}

TEST_F(ASCIIExport, WithAppendAndAtEveryLevelEachFieldIsAFileBelowItsSkeleton) {
    addRefinedGrid(*bundle, 0, 10);
    exporter.Append = true;
    exporter.RefLevel = -2;
    EXPECT_THAT(exported(), UnorderedElementsAre(Pair("Skeleton1/Id.asc", " 11\n 11\n 11\n"),
                                                 Pair("Skeleton1/XYZ_Coordinates.asc", origin),
                                                 Pair("Skeleton2/Id.asc", " 12\n 12\n 12\n"),
                                                 Pair("Skeleton2/XYZ_Coordinates.asc", origin),
                                                 Pair("Skeleton-1/Id.asc", " 13\n 13\n 13\n"),
                                                 Pair("Skeleton-1/XYZ_Coordinates.asc", origin)));
}

TEST_F(ASCIIExport, RefinementsTwoTwoTwoAndOneTwoTwoAreSkeletonTwoAndMinusOne) {
    GridBuilder(*bundle, 0, "g", {2, 2, 2})
        .field("Positions", "", Points{{1, 2, 3}})
        .skeleton({1, 2, 2})
        .field("Positions", "", Points{{0, 0, 0}});
    exporter.RefLevel = -2;
    EXPECT_THAT(exported(), ElementsAre(Pair("Positions/Skeleton-1/Unfragmented.asc", origin),
                                        Pair("Positions/Skeleton2/Unfragmented.asc", onePoint)));
}

TEST_F(ASCIIExport, RefLevelThatNoSkeletonHasWritesNothingAndIsNoError) {
    cloud(0, "g", {2, 2});
    exporter.RefLevel = 0;
    EXPECT_THAT(exported(), IsEmpty());
}

TEST_F(ASCIIExport, LevelsBelowMinusTwoSelectSkeletonsThatAreNotHomogeneous) {
    cloud(0, "g", {1, 1, 2})
        .skeleton({1, 1, 1})
        .field("Positions", "", Points{{0, 0, 0}})
        .skeleton({1, 1, 1, 2})
        .field("Id", "", Ints{3});
    exporter.RefLevel = -3;
    EXPECT_THAT(exported(), ElementsAre(Pair("Id/Skeleton-3/Unfragmented.asc", " 3\n")));
}

TEST_F(ASCIIExport, SkeletonsOfEveryDimensionAreWalked) {
    cloud().skeleton({}, 0, 2).field("Id", "", Ints{5});
    EXPECT_THAT(exported(), ElementsAre(Pair("Positions/Unfragmented.asc", onePoint)));
    exporter.RefLevel = -2;
    EXPECT_THAT(exported(), ElementsAre(Pair("Id/Skeleton0/Unfragmented.asc", " 5\n"),
                                        Pair("Positions/Skeleton0/Unfragmented.asc", onePoint)));
}

TEST_F(ASCIIExport, EveryRepresentationIsWalkedNotOnlyTheDefaultChart) {
    cloud().chart("ZZZ").field("Id", "", Ints{5});
    EXPECT_THAT(exported(), ElementsAre(Pair("Id/Unfragmented.asc", " 5\n"),
                                        Pair("Positions/Unfragmented.asc", onePoint)));
}

TEST_F(ASCIIExport, LaterTimeStepOverwritesWithoutAppend) {
    cloud(0).field("Id", "", Ints{1, 1, 1});
    cloud(1).field("Id", "", Ints{2});
    EXPECT_THAT(exported(), ElementsAre(Pair("Id/Unfragmented.asc", " 2\n"),
                                        Pair("Positions/Unfragmented.asc", onePoint)));
}

TEST_F(ASCIIExport, LaterTimeStepIsAppendedWithAppend) {
    cloud(0).field("Id", "", Ints{1, 1, 1});
    cloud(1).field("Id", "", Ints{2});
    exporter.Append = true;
    EXPECT_THAT(exported(), ElementsAre(Pair("Id.asc", " 1\n 1\n 1\n 2\n"),
                                        Pair("XYZ_Coordinates.asc", onePoint + onePoint)));
    exporter.RefLevel = -2;
    EXPECT_THAT(exported(), ElementsAre(Pair("Skeleton0/Id.asc", " 1\n 1\n 1\n 2\n"),
                                        Pair("Skeleton0/XYZ_Coordinates.asc", onePoint + onePoint)));
}

TEST_F(ASCIIExport, LaterGridOverwritesOrIsAppendedInTheOrderOfNames) {
    cloud(0, "b").field("Id", "", Ints{2});
    cloud(0, "a").field("Id", "", Ints{1});
    exporter.FieldFilter = {"Id"};
    EXPECT_THAT(exported(), ElementsAre(Pair("Id/Unfragmented.asc", " 2\n")));
    exporter.Append = true;
    EXPECT_THAT(exported(), ElementsAre(Pair("Id.asc", " 1\n 2\n")));
}

TEST_F(ASCIIExport, SecondRunAppendsToWhatIsThere) {
    cloud();
    exporter.Append = true;
    run();
    run();
    EXPECT_THAT(treeOf(folder.path()), ElementsAre(Pair("XYZ_Coordinates.asc", onePoint + onePoint)));
}

TEST_F(ASCIIExport, GridsAndFieldsThatAreFilteredOutLeaveNoTrace) {
    cloud(0, "a").field("Id", "", Ints{1});
    cloud(0, "b").field("Id", "", Ints{2});
    exporter.GridFilter = {"a"};
    exporter.FieldFilter = {"Id"};
    EXPECT_THAT(exported(), ElementsAre(Pair("Id/Unfragmented.asc", " 1\n")));
}

TEST_F(ASCIIExport, GridsThatLackSomethingAreSkippedWithoutAMessage) {
    const auto slice = bundle->makeSlice(0);
    slice->makeGrid("no skeleton");
    slice->makeGrid("no chart")->skeletons().make({0, {}});
    GridBuilder(*bundle, 0, "no positions").field("Id", "", Ints{5});
    slice->makeGrid("no vertices")->skeletons().make({1, {}});
    GridBuilder(*bundle, 0, "no homogeneous skeleton", {1, 2}).field("Positions", "", Points{{1, 2, 3}});
    cloud(0, "gone");
    slice->removeGrid("gone");
    exporter.RefLevel = -2;
    EXPECT_THAT(exported(), IsEmpty());
    EXPECT_THAT(console.messages, ElementsAre(" Data at T=0"));
}

TEST_F(ASCIIExport, ProgressCountsEveryFragmentOfEverySkeletonPerGrid) {
    cloud(0, "a", {2})
        .field("Id", "x", Ints{1})
        .field("Id", "y", Ints{1})
        .skeleton({1})
        .field("Id", "x", Ints{1});
    cloud(0, "b");
    const auto reporter = Anchor::makeStrong<Reporter>();
    exporter.Progress = reporter;
    run();
    EXPECT_THAT(reporter->reports, ElementsAre(Reporter::Report("KxtoASCII, Id #", 0, 4),
                                               Reporter::Report("KxtoASCII, Id #", 1, 4),
                                               Reporter::Report("KxtoASCII, Id #", 2, 4),
                                               Reporter::Report("KxtoASCII, Positions #", 3, 4),
                                               Reporter::Report("KxtoASCII, Positions #", 0, 1)));
}

TEST_F(ASCIIExport, ProgressLeavesOutFieldsThatAreFilteredOut) {
    cloud().field("Id", "", Ints{1});
    const auto reporter = Anchor::makeStrong<Reporter>();
    exporter.Progress = reporter;
    exporter.FieldFilter = {"Id"};
    run();
    EXPECT_THAT(reporter->reports, ElementsAre(Reporter::Report("KxtoASCII, Id #", 0, 1)));
}

TEST_F(ASCIIExport, RefusedProgressDoesNotStopTheExport) {
    cloud().field("Id", "", Ints{1});
    const auto whole = exported();
    const auto reporter = Anchor::makeStrong<Reporter>();
    reporter->answer = false;
    exporter.Progress = reporter;
    EXPECT_EQ(exported(), whole);
    EXPECT_EQ(reporter->reports.size(), 2U);
}

TEST_F(ASCIIExport, ExceptionOfTheReporterPassesThrough) {
    struct Stop {};
    struct Stopper final : Anchor::LoaderProgress {
        bool progress(const std::string&, std::uint64_t current, std::uint64_t) override {
            return current == 0 ? true : throw Stop();
        }
    };
    cloud().field("Id", "", Ints{1});
    exporter.Progress = Anchor::makeStrong<Stopper>();
    EXPECT_THROW(exporter.Run(), Stop);
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("Id/Unfragmented.asc"));
}

TEST_F(ASCIIExport, ExceptionOfTheFilesystemPassesThrough) {
    cloud();
    Support::writeBytes(folder / "Positions", "a plain file where a folder must go");
    EXPECT_THROW(exporter.Run(), fs::filesystem_error);
    exporter.OutputPath = folder / std::string(5000, 'x');
    EXPECT_THROW(exporter.Run(), fs::filesystem_error);
}

TEST_F(ASCIIExport, UniformGridGoesToAGridFileAndPositionsOnlyToTheConsole) {
    GridBuilder(*bundle, 0, "dem")
        .field("Positions", "000000", heldLattice({10, 20, 0}, {0.5, 0.5, 1}, {2, 2, 1}))
        .field("Height", "000000", heldArray<float>({2, 2, 1}, {1, 2, 3, 4}))
        .field("CellType", "000000", heldArray<unsigned char>({2, 2, 1}, Bytes{1, 1, 0, 1}));
    exporter.CellTypeFilter = {};
    exporter.CellTypeFilter.add(1, 1);
    exporter.Precision = 1;
    exporter.TileSuffix = true;
    exporter.FieldFilter = {"Positions", "Height"};
    EXPECT_THAT(exported(), ElementsAre(Pair("Height/000000_10_20.grd", "NCOLS 2\n"
                                                                        "NROWS 2\n"
                                                                        "XLLCENTER 10.000\n"
                                                                        "YLLCENTER 20.000\n"
                                                                        "CELLSIZE 0.500\n"
                                                                        "NODATA_VALUE -9999.\n"
                                                                        "-9999.  4.0 \n"
                                                                        " 1.0  2.0 \n"),
                                        Pair("Positions/", "")));
    EXPECT_THAT(console.messages,
                ElementsAre(" Data at T=0", "No Overlap", "No Overlap", "Can only convert scalar fields"));
    exporter.Append = true;
    exporter.RefLevel = 0;
    exporter.FieldFilter = {"Height"};
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("Height/000000_10_20.grd", "Positions/"));
    exported();
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("Skeleton0/Height_10_20.grd"));
}

TEST_F(ASCIIExport, DefaultFilterWritesTheValueOfEveryCell) {
    GridBuilder(*bundle, 0, "dem")
        .field("Positions", "", heldLattice({0, 0, 0}, {1, 1, 1}, {2, 1, 1}))
        .field("Height", "", heldArray<int>({2, 1, 1}, {1, 2}))
        .field("CellType", "", heldArray<unsigned char>({2, 1, 1}, Bytes{0, 255}));
    exporter.FieldFilter = {"Height"};
    EXPECT_THAT(exported().at("Height/Unfragmented.grd"), ::testing::EndsWith("\n 1  2 \n"));
}

TEST_F(ASCIIExport, EveryOpenedFileHasARecordOfBytesAndItems) {
    cloud().field("Id", "", Ints{1, 22});
    run();
    const auto& files = exporter.writtenFiles();
    ASSERT_EQ(files.size(), 2U);
    EXPECT_EQ(files[0].path, folder / "Id/Unfragmented.asc");
    EXPECT_EQ(files[0].bytes, 7U);
    EXPECT_EQ(files[0].items, 2U);
    EXPECT_FALSE(files[0].failed);
    EXPECT_EQ(files[1].path, folder / "Positions/Unfragmented.asc");
    EXPECT_EQ(files[1].bytes, onePoint.size());
    EXPECT_EQ(files[1].items, 1U);
}

TEST_F(ASCIIExport, RecordsOfAppendedFilesSumUpTheRun) {
    cloud(0).field("Id", "", Ints{1, 22});
    cloud(1).field("Id", "", Ints{3});
    Support::writeBytes(folder / "Id.asc", "what stood there before\n");
    exporter.FieldFilter = {"Id"};
    exporter.Append = true;
    run();
    const auto& files = exporter.writtenFiles();
    ASSERT_EQ(files.size(), 2U);
    EXPECT_EQ(files[0].bytes, 7U);
    EXPECT_EQ(files[0].items, 2U);
    EXPECT_EQ(files[1].path, folder / "Id.asc");
    EXPECT_EQ(files[1].bytes, 10U);
    EXPECT_EQ(files[1].items, 3U);
    EXPECT_EQ(Support::readBytes(folder / "Id.asc"), "what stood there before\n 1\n 22\n 3\n");
}

TEST_F(ASCIIExport, FileThatFailedOnceIsRecordedAsFailedInAppendMode) {
    fs::create_directory(folder.path() / "Id.asc");
    cloud(0).field("Id", "", Ints{1});
    cloud(1).field("Id", "", Ints{2});
    exporter.FieldFilter = {"Id"};
    exporter.Append = true;
    run();
    ASSERT_EQ(exporter.writtenFiles().size(), 2U);
    EXPECT_TRUE(exporter.writtenFiles()[0].failed);
    EXPECT_TRUE(exporter.writtenFiles()[1].failed);
}

/// How many times this process has asked the system to write.
std::optional<long> writeCalls() {
    std::ifstream counters("/proc/self/io");
    for (std::string key; counters >> key;) {
        long count = 0;
        counters >> count;
        if (key == "syscw:")
            return count;
    }
    return std::nullopt;
}

TEST_F(ASCIIExport, LinesReachTheSystemOneByOneUnlessTheHostWantsBlocks) {
    if (!writeCalls())
        GTEST_SKIP() << "no count of writes: /proc/self/io does not tell it";
    cloud().field("Id", "", Ints(1000, 1));
    const auto callsOf = [&](bool flush) {
        exporter.setFlushLines(flush);
        const long before = *writeCalls();
        run();
        return *writeCalls() - before;
    };
    const long flushed = callsOf(true);
    const auto withFlush = treeOf(folder.path());
    const long unflushed = callsOf(false);
    EXPECT_GE(flushed, 1000);
    EXPECT_LT(unflushed, 50);
    EXPECT_EQ(treeOf(folder.path()), withFlush);
}

TEST_F(ASCIIExport, ExporterIsDestroyedThroughTheBase) {
    auto* made = new ExportLib::ExportPointCloudToASCII;
    made->FilterField = std::string(1000, 'x');
    made->CellTypeFilter.add(1, 2);
    const std::unique_ptr<ConvLib::BasicConverterDefs> base(made);
    EXPECT_THAT(base->printSecondary(), ::testing::StartsWith("\nFilterField: xxx"));
}

/// Notes what the exporter tells.
class Told final : public ConvLib::RunObserver {
public:
    void positionsWritten(std::span<const Geom::PhysicalSpace::point> view) override {
        positions.insert(positions.end(), view.begin(), view.end());
    }
    void valuesChanged(const ConvLib::ChangedValues& values) override {
        EXPECT_EQ(values.change, ConvLib::ValueChange::Rounded);
        rounded.push_back(std::string(values.attribute) + ": " + std::to_string(values.count) + " of " +
                          std::to_string(values.total) + " by " +
                          std::to_string(std::llround(values.most * 1e9)) + "e-9");
    }
    Points positions;
    std::vector<std::string> rounded;
};

TEST_F(ASCIIExport, ObserverHearsOfPositionsAndOfRoundedValuesThatAreWritten) {
    const auto told = Anchor::makeStrong<Told>();
    exporter.setObserver(told);
    exporter.Precision = 1;
    exporter.CellTypeFilter = {};
    exporter.CellTypeFilter.add(1, 1);
    const Points points{{1.23456789, 2, 3}, {4, 5, 6}};
    GridBuilder(*bundle, 0, "cloud")
        .field("Positions", "p", points)
        .field("Table", "p", heldArray<double>({2, 1}, {0.0000005, 1}))
        .field("Flow", "p", std::vector<Geom::PhysicalSpace::vector>{{1, 2, 0.0000002}, {1, 2, 3}})
        .field("Id", "p", std::vector<int>{7, 8});
    // The first cell is not written, and the second is as it was.
    GridBuilder(*bundle, 0, "dem")
        .field("Positions", "f", heldLattice({0, 0, 0}, {1, 1, 1}, {4, 1, 1}))
        .field("Depth", "f", heldArray<double>({4, 1, 1}, {0.11, 0.5, 0.25, 0.125}))
        .field("CellType", "f", heldArray<unsigned char>({4, 1, 1}, {0, 1, 1, 1}));
    EXPECT_TRUE(exporter.Run());
    EXPECT_EQ(told->positions, points);
    EXPECT_THAT(told->rounded, ElementsAre("Flow: 1 of 2 by 200e-9", "Table: 1 of 2 by 500e-9",
                                           "Depth: 2 of 4 by 50000000e-9"));
}

TEST_F(ASCIIExport, WithAndWithoutAnObserverTheBytesAreTheSame) {
    GridBuilder(*bundle, 0, "cloud")
        .field("Positions", "", Points{{1.23456789, 2, 3}, {4, 5, 6}})
        .field("Table", "", heldArray<float>({2, 1}, {0.3F, 1}));
    EXPECT_TRUE(exporter.Run());
    const auto plain = Support::treeOf(folder.path());
    exporter.setObserver(Anchor::makeStrong<Told>());
    EXPECT_TRUE(exporter.Run());
    EXPECT_EQ(Support::treeOf(folder.path()), plain);
}

TEST_F(ASCIIExport, HostCanStopInTheMiddleOfListsTablesAndGrids) {
    constexpr std::uint64_t size = ConvLib::BasicConverterDefs::stopInterval;
    exporter.setFlushLines(false);
    GridBuilder(*bundle, 0, "g")
        .field("Id", "list", std::vector<int>(3 * size))
        .field("Id", "table", heldArray<int>({size, 3}, std::vector<int>(3 * size)))
        .field("Id", "wide", heldArray<int>({3 * size, 1}, std::vector<int>(3 * size)))
        .field("Positions", "grid", heldLattice({0, 0, 0}, {1, 1, 1}, {3 * size, 1, 1}))
        .field("Id", "grid", heldArray<int>({3 * size, 1, 1}, std::vector<int>(3 * size)))
        .field("CellType", "grid",
               heldArray<unsigned char>({3 * size, 1, 1}, std::vector<unsigned char>(3 * size)));
    std::size_t asked = 0;
    exporter.setStopQuestion([&] { ++asked; });
    EXPECT_TRUE(exporter.Run());
    // Before each of six fragments, and three times in each of the five files.
    EXPECT_GE(asked, 6U + 15U);
    struct Stopped {};
    const std::size_t questions = asked;
    for (std::size_t last = 1; last <= questions; last += 3) {
        asked = 0;
        exporter.setStopQuestion([&] {
            if (++asked == last)
                throw Stopped();
        });
        EXPECT_THROW(exporter.Run(), Stopped) << last;
    }
}

} // namespace
