// SPDX-License-Identifier: Apache-2.0
//
// The built program from outside: what users see.
#include "host/ProgramFixture.hpp"
#include "library/report/Json.hpp"
#include "pcd/ExportPointCloudToPCD.hpp"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <regex>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

namespace Tidewatch {
namespace {

namespace fs = std::filesystem;

using Support::GridBuilder;
using Support::Points;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

/// Two grids at time 0 and one at 6.5, intensities and another field in the first.
Anchor::StrongPtr<Sheaf::Bundle> smallBundle() {
    auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "dunes")
        .field("Positions", "0", randomPoints(100, 1))
        .field("Positions", "1", randomPoints(50, 2))
        .field("Intensity", "0", std::vector<unsigned short>(100, 7))
        .field("Intensity", "1", std::vector<unsigned short>(50, 900))
        .field("GPSTime", "0", std::vector<double>(100, 0.5));
    GridBuilder(*bundle, 0, "flats").field("Positions", "", randomPoints(30, 3));
    GridBuilder(*bundle, 6.5, "dunes").field("Positions", "", randomPoints(20, 4));
    return bundle;
}

/// The bytes that the exporter itself writes for a bundle.
std::string exported(const Anchor::StrongPtr<Sheaf::Bundle>& bundle,
                     const std::function<void(ExportLib::ExportPointCloudToPCD&)>& set = {}) {
    const Support::TemporaryFolder folder;
    ExportLib::ExportPointCloudToPCD exporter;
    exporter.bundleptr = bundle;
    exporter.OutputPath = folder / "x.pcd";
    if (set)
        set(exporter);
    EXPECT_TRUE(exporter.Run());
    return Support::readBytes(folder / "x.pcd");
}

std::size_t lines(const std::string& text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

class ProgramTest : public ProgramFixture {
protected:
    void writeSmall() const { write("in.h5", smallBundle()); }
};

// Usage

TEST_F(ProgramTest, WrongUsageHasStatusTwoAndAMessage) {
    for (const ProgramRunner::Arguments& arguments : std::vector<ProgramRunner::Arguments>{
             {},
             {"pdc"},
             {"pcd"},
             {"pcd", "in.h5"},
             {"pcd", "in.h5", "--last-wins", "-o", "a", "--precision", "many"},
             {"pcd", "in.h5", "--last-wins", "-o", "{what}.pcd"},
             {"info", "in.h5", "--nonsense"},
             {"las", "in.h5"}}) {
        const auto result = run(arguments);
        EXPECT_EQ(result.status, 2) << ::testing::PrintToString(arguments);
        EXPECT_THAT(result.err, StartsWith("tidewatch: "));
        EXPECT_EQ(result.out, "");
    }
}

TEST_F(ProgramTest, HelpAndVersionGoToStandardOutput) {
    for (const ProgramRunner::Arguments& arguments : std::vector<ProgramRunner::Arguments>{
             {"--help"}, {"--version"}, {"pcd", "--help"}, {"info", "-h"}}) {
        const auto result = run(arguments);
        EXPECT_EQ(result.status, 0);
        EXPECT_THAT(result.out, HasSubstr("tidewatch"));
        EXPECT_EQ(result.err, "");
    }
}

// Inputs

TEST_F(ProgramTest, AMissingInputIsNamed) {
    const auto result = run({"info", "nowhere.laz"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, AllOf(StartsWith("tidewatch: nowhere.laz: "), HasSubstr("No such file")));
}

TEST_F(ProgramTest, AnInputOfNoKnownKindIsNamed) {
    Support::writeBytes(place_ / "a.laz", "no point cloud");
    const auto result = run({"pcd", "a.laz", "-o", "a.pcd"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("a.laz: not recognised"));
    EXPECT_THAT(names(), ElementsAre("a.laz"));
}

TEST_F(ProgramTest, ADamagedInputLeavesNothingBehind) {
    write("in.h5", smallBundle());
    const std::string whole = read("in.h5");
    Support::writeBytes(place_ / "cut.h5", whole.substr(0, whole.size() / 2));
    const auto result = run({"pcd", "cut.h5", "-o", "out/a.pcd"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("cut.h5"));
    EXPECT_THAT(names(), ElementsAre("cut.h5", "in.h5"));
}

TEST_F(ProgramTest, TwoGridsOfOneNameAtOneTimeAreAnErrorThatNamesBothInputs) {
    writeSmall();
    fs::copy_file(place_ / "in.h5", place_ / "again.h5");
    const auto result = run({"info", "in.h5", "again.h5"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, AllOf(HasSubstr("in.h5"), HasSubstr("again.h5"), HasSubstr("dunes")));
}

TEST_F(ProgramTest, InputsOfOneTimeShareTheSlice) {
    const auto one = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*one, 1, "a").field("Positions", "", randomPoints(3));
    const auto two = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*two, 1, "b").field("Positions", "", randomPoints(4));
    write("one.h5", one);
    write("two.h5", two);
    const auto result = run({"info", "--json", "one.h5", "two.h5"});
    EXPECT_EQ(result.status, 0);
    const Json document = Json::parse(result.out);
    ASSERT_EQ(document["slices"].size(), 1U);
    EXPECT_EQ(document["slices"][0]["grids"].size(), 2U);
    EXPECT_EQ(document["points"], 7);
}

// pcd

TEST_F(ProgramTest, PcdWritesWhatTheExporterWrites) {
    write("in.h5", smallBundle());
    const auto result = run({"pcd", "in.h5", "--last-wins", "-o", "a.pcd"});
    EXPECT_EQ(result.status, 0) << result.err;
    const std::string bytes = read("a.pcd");
    EXPECT_EQ(bytes, exported(smallBundle()));
    EXPECT_EQ(result.out, "a.pcd: 20 points, " + std::to_string(bytes.size()) + " bytes\n");
    EXPECT_THAT(result.err, Not(HasSubstr("Run\n")));
    EXPECT_THAT(names(), ElementsAre("a.pcd", "in.h5"));
}

TEST_F(ProgramTest, PcdPassesItsSettingsAndFiltersOn) {
    write("in.h5", smallBundle());
    const auto result =
        run({"pcd", "in.h5", "--last-wins", "-o", "a.pcd", "--precision", "3", "--cell-size", "400",
             "--exact-counts", "--ref-level", "0", "--time", "-1:1", "--grid", "d*", "--field", "Pos*"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(read("a.pcd"), exported(smallBundle(), [](ExportLib::ExportPointCloudToPCD& exporter) {
                  exporter.Precision = 3;
                  exporter.CellSize = 400;
                  exporter.ExactCounts = true;
                  exporter.RefLevel = 0;
                  exporter.TimeFilter = {{-1, 1}};
                  exporter.GridFilter = {"d*"};
                  exporter.FieldFilter = {"Pos*"};
              }));
}

TEST_F(ProgramTest, PcdNamesFilesAsTheUserDoes) {
    writeSmall();
    fs::create_directory(place_.path() / "here");
    const auto inFolder = [&](const std::string& output) {
        return ProgramRunner::run(place_.path() / "here",
                                  {"pcd", "-q", "../in.h5", "--last-wins", "-o", output});
    };
    const std::string expected = exported(smallBundle());
    for (const std::string output :
         {"cloud", "./out/cloud", "../up/cloud", "survey.2024/cloud", "survey.2024/v.1/cloud.pcd", ".hidden",
          "dot.", "a.b.c", "d\xc3\xbcne", "with blank"}) {
        const auto result = inFolder(output);
        EXPECT_EQ(result.status, 0) << output << ": " << result.err;
        EXPECT_EQ(read("here/" + output), expected) << output;
    }
    EXPECT_THAT(names(), Not(::testing::Contains(HasSubstr("tidewatch"))));
    EXPECT_EQ(inFolder(place_ / "absolute/cloud").status, 0);
    EXPECT_EQ(read("absolute/cloud"), expected);
}

TEST_F(ProgramTest, PcdGivesEachGridAndTimeAFile) {
    writeSmall();
    const auto result = run({"pcd", "in.h5", "--last-wins", "-o", "out/{grid}-{time}.pcd", "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(names(),
                ElementsAre("in.h5", "out", "out/dunes-0.pcd", "out/dunes-6.5.pcd", "out/flats-0.pcd"));
    EXPECT_EQ(read("out/flats-0.pcd"),
              exported(smallBundle(),
                       [](ExportLib::ExportPointCloudToPCD& exporter) { exporter.GridFilter = {"flats"}; }));
    const Json document = Json::parse(result.out);
    EXPECT_EQ(document["command"], "pcd");
    ASSERT_EQ(document["files"].size(), 3U);
    EXPECT_EQ(document["files"][0]["path"], "out/dunes-0.pcd");
    EXPECT_EQ(document["files"][0]["points"], 150);
    EXPECT_EQ(document["files"][0]["bytes"], read("out/dunes-0.pcd").size());
    EXPECT_EQ(document["files"][2]["grid"], "dunes");
    EXPECT_EQ(document["files"][2]["time"], 6.5);
}

TEST_F(ProgramTest, TwoRunsOfOneNameAreAnErrorBeforeAnyWork) {
    writeSmall();
    const auto result = run({"pcd", "in.h5", "--last-wins", "-o", "out/{grid}/../x.pcd"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, AllOf(HasSubstr("dunes"), HasSubstr("flats")));
    EXPECT_THAT(names(), ElementsAre("in.h5"));
}

TEST_F(ProgramTest, LossesAreSaidOnce) {
    writeSmall();
    const auto result = run({"pcd", "in.h5", "--last-wins", "-o", "a.pcd", "--time", "0", "--grid", "dunes",
                             "--precision", "4", "--cell-size", "500"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr("PCD does not carry the field GPSTime\n"));
    EXPECT_THAT(result.err,
                HasSubstr("coordinates are rounded by up to 0.05, more than the input's step of 0.001 "
                          "allows; --precision 6 keeps them"));
    EXPECT_THAT(result.err, HasSubstr("packed colours are rounded; --precision 8 keeps them"));
    EXPECT_THAT(result.err, HasSubstr("the header states 150 points"));
    EXPECT_EQ(lines(result.err), 4U) << result.err;
}

TEST_F(ProgramTest, AnOverwrittenGridIsSaid) {
    writeSmall();
    const auto result = run({"pcd", "in.h5", "--last-wins", "-o", "a.pcd", "--time", "0"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err,
                HasSubstr("a.pcd holds grid \"flats\" at time 0, which overwrote grid \"dunes\" at time 0"));
}

TEST_F(ProgramTest, UnusableIntensitiesAreSaid) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "short")
        .field("Positions", "0", randomPoints(10))
        .field("Intensity", "0", std::vector<unsigned short>(9, 1));
    GridBuilder(*bundle, 0, "wide")
        .field("Positions", "0", randomPoints(10))
        .field("Intensity", "0", std::vector<unsigned int>(10, 1));
    write("in.h5", bundle);
    const auto result = run({"pcd", "in.h5", "--last-wins", "-o", "{grid}.pcd"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(
        result.err,
        HasSubstr("grid \"short\" at time 0: Intensity is left out; there are 9 values for 10 points"));
    EXPECT_THAT(result.err, HasSubstr("grid \"wide\" at time 0: Intensity stored as uint32 is left out"));
}

TEST_F(ProgramTest, StrictRefusesLossesAndAcceptsALosslessExport) {
    writeSmall();
    const auto refused = run({"pcd", "in.h5", "--last-wins", "-o", "out/a.pcd", "--strict"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.out, "");
    EXPECT_THAT(refused.err, HasSubstr("nothing was put in place"));
    EXPECT_THAT(names(), ElementsAre("in.h5"));
    const auto accepted = run({"pcd", "in.h5", "--last-wins", "-o", "out/{grid}-{time}.pcd", "--strict",
                               "--exact-counts", "--field", "Positions", "--field", "Intensity"});
    EXPECT_EQ(accepted.status, 0) << accepted.err;
    EXPECT_EQ(accepted.err, "");
}

TEST_F(ProgramTest, NothingWrittenHasStatusOneAndAReason) {
    writeSmall();
    const auto filtered = run({"pcd", "in.h5", "--last-wins", "-o", "out/a.pcd", "--grid", "nothing"});
    EXPECT_EQ(filtered.status, 1);
    EXPECT_THAT(
        filtered.err,
        HasSubstr(
            "nothing was written: no grid matches --grid 'nothing' (case counts); there are: dunes, flats"));
    const auto level = run({"pcd", "in.h5", "--last-wins", "-o", "out/a.pcd", "--ref-level", "3"});
    EXPECT_EQ(level.status, 1);
    EXPECT_THAT(level.err, HasSubstr("nothing to export at refinement level 3"));
    EXPECT_THAT(names(), ElementsAre("in.h5"));
}

TEST_F(ProgramTest, QuietSaysNothingWhenAllIsWell) {
    writeSmall();
    const auto result = run({"pcd", "in.h5", "--last-wins", "-o", "a.pcd", "-q", "--progress", "always"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
}

TEST_F(ProgramTest, ParametersAreShownOnRequest) {
    writeSmall();
    const auto result =
        run({"pcd", "in.h5", "--last-wins", "-o", "a.pcd", "-q", "--print-parameters", "--cell-size", "2.5"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, AllOf(HasSubstr("OutputPath: a.pcd "), HasSubstr("RefLevel: -1 "),
                                  HasSubstr("Precision: 8 "), HasSubstr("CellSize: 2.5 ")));
}

TEST_F(ProgramTest, ProgressIsShownOnRequestOnly) {
    writeSmall();
    EXPECT_THAT(run({"pcd", "in.h5", "--last-wins", "-o", "a.pcd"}).err, Not(HasSubstr("[#")));
    EXPECT_THAT(run({"pcd", "in.h5", "--last-wins", "-o", "b.pcd", "--progress", "never"}).err,
                Not(HasSubstr("[#")));
    const auto result = run({"pcd", "in.h5", "--last-wins", "-o", "c.pcd", "--progress", "always"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr("reading"));
    EXPECT_THAT(result.err, HasSubstr("[########################] 100 %"));
}

/// The percentages that progress lines show, in order.
std::vector<int> percentages(const std::string& text) {
    std::vector<int> all;
    const std::regex share("\\] +([0-9]+) %");
    for (std::sregex_iterator match(text.begin(), text.end(), share), end; match != end; ++match)
        all.push_back(std::stoi((*match)[1]));
    return all;
}

TEST_F(ProgramTest, ProgressRisesOverTheWholeRunAndIsFullOnlyAtTheEnd) {
    writeSmall();
    const std::vector<ProgramRunner::Arguments> commands{
        {"pcd", "in.h5", "-o", "pcd/{grid}-{time}.pcd"},
        {"pcd", "in.h5", "-o", "box/{grid}-{time}.pcd", "--box", "0,0,500,500"},
        {"las", "in.h5", "-o", "las/{grid}-{time}.laz", "--verify"},
        {"ascii", "in.h5", "-o", "text/{time}"},
        {"ascii", "in.h5", "-o", "added", "--append"},
        {"bundle", "in.h5", "-o", "out.h5"},
        {"view", "in.h5", "-o", "out.png"},
        {"info", "in.h5", "--stats"},
        {"check", "in.h5", "out.h5", "las/dunes-0.laz"},
    };
    for (ProgramRunner::Arguments arguments : commands) {
        SCOPED_TRACE(arguments[0]);
        arguments.insert(arguments.end(), {"--progress", "always"});
        const auto result = run(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        const std::vector<int> shares = percentages(result.err);
        ASSERT_GE(shares.size(), 2U) << result.err;
        EXPECT_TRUE(std::is_sorted(shares.begin(), shares.end())) << result.err;
        EXPECT_EQ(shares.back(), 100) << result.err;
        EXPECT_EQ(std::count(shares.begin(), shares.end(), 100), 1) << result.err;
    }
}

TEST_F(ProgramTest, TheMemoryLimitChangesNoByte) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder grid(*bundle, 0, "g");
    for (unsigned number = 0; number < 20; ++number)
        grid.field("Positions", std::to_string(100 + number), randomPoints(1000, number));
    write("in.h5", bundle);
    EXPECT_EQ(run({"pcd", "in.h5", "--last-wins", "-o", "a.pcd"}).status, 0);
    // 48 bytes a point.
    const auto limited = run({"pcd", "in.h5", "--last-wins", "-o", "b.pcd", "--memory-limit", "938K"});
    EXPECT_EQ(limited.status, 0) << limited.err;
    EXPECT_EQ(read("a.pcd"), read("b.pcd"));
}

TEST_F(ProgramTest, WhatNeedsMoreMemoryThanTheLimitIsRefusedBeforeTheWork) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "g").field("Positions", "a", randomPoints(20'000));
    write("in.h5", bundle);
    const auto pcd = run({"pcd", "in.h5", "--last-wins", "-o", "a.pcd", "--memory-limit", "600K"});
    EXPECT_EQ(pcd.status, 1);
    EXPECT_THAT(
        pcd.err,
        HasSubstr("grid \"g\" at time 0: 20 000 points need 938 KiB of memory to be thinned together, "
                  "and 600 KiB are allowed"));
    // An array that cannot be read in parts.
    const auto ascii = run({"ascii", "in.h5", "-o", "out", "--memory-limit", "400K"});
    EXPECT_EQ(ascii.status, 1);
    EXPECT_THAT(ascii.err, HasSubstr("480000 bytes of memory, and 409600 are allowed"));
    EXPECT_THAT(names(), ElementsAre("in.h5"));
}

// Existing files

TEST_F(ProgramTest, AnExistingFileIsReplacedOnRequestOnly) {
    writeSmall();
    Support::writeBytes(place_ / "a.pcd", "old");
    const auto refused = run({"pcd", "in.h5", "--last-wins", "-o", "a.pcd"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.err, HasSubstr("a.pcd: already exists; --overwrite replaces it"));
    EXPECT_EQ(read("a.pcd"), "old");
    EXPECT_EQ(run({"pcd", "in.h5", "--last-wins", "-o", "a.pcd", "--overwrite"}).status, 0);
    EXPECT_EQ(read("a.pcd"), exported(smallBundle()));
}

TEST_F(ProgramTest, AFailureLeavesTheExistingFile) {
    writeSmall();
    Support::writeBytes(place_ / "a.pcd", "old");
    const auto result = run({"pcd", "in.h5", "--last-wins", "-o", "a.pcd", "--overwrite", "--strict"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(read("a.pcd"), "old");
    EXPECT_THAT(names(), ElementsAre("a.pcd", "in.h5"));
}

TEST_F(ProgramTest, TheInputIsNeverTheOutput) {
    writeSmall();
    const std::string before = read("in.h5");
    fs::create_hard_link(place_ / "in.h5", place_ / "hard");
    fs::create_symlink("in.h5", place_ / "soft");
    for (const std::string output : {"hard", "soft"}) {
        const auto bundle = run({"bundle", "in.h5", "-o", output, "--overwrite"});
        EXPECT_EQ(bundle.status, 1) << output;
        EXPECT_THAT(bundle.err, HasSubstr("one of the inputs"));
        const auto pcd = run({"pcd", "in.h5", "--last-wins", "-o", output, "--overwrite"});
        EXPECT_EQ(pcd.status, 1) << output;
        EXPECT_THAT(pcd.err, HasSubstr("one of the inputs"));
    }
    EXPECT_EQ(run({"bundle", "in.h5", "-o", "in.h5", "--overwrite"}).status, 1);
    EXPECT_EQ(read("in.h5"), before);
}

TEST_F(ProgramTest, AFolderInTheWayIsAnError) {
    writeSmall();
    fs::create_directory(place_ / "a.pcd");
    const auto result = run({"pcd", "in.h5", "--last-wins", "-o", "a.pcd", "--overwrite"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr(": is a folder"));
}

TEST_F(ProgramTest, AFolderThatMayNotBeWrittenToIsAnError) {
    if (::geteuid() == 0)
        GTEST_SKIP() << "superuser: may write everywhere";
    writeSmall();
    fs::create_directory(place_ / "closed");
    fs::permissions(place_ / "closed", fs::perms::owner_read | fs::perms::owner_exec);
    const auto result = run({"pcd", "in.h5", "--last-wins", "-o", "closed/a.pcd"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, AllOf(HasSubstr("closed"), HasSubstr("Permission denied")));
}

TEST_F(ProgramTest, AFileThatGrowsTooLargeIsAnErrorThatLeavesNothing) {
    // Arrays of bundle files come through files in memory, which the limit concerns, too.
    write("in.laz", variedLas(200));
    const auto limitFiles = [] {
        const struct rlimit limit { 1000, 1000 };
        ::setrlimit(RLIMIT_FSIZE, &limit);
    };
    const auto pcd = run({"pcd", "in.laz", "-o", "out/a.pcd"}, limitFiles);
    EXPECT_EQ(pcd.status, 1);
    EXPECT_THAT(pcd.err, HasSubstr("out/a.pcd: writing failed"));
    const auto bundle = run({"bundle", "in.laz", "-o", "out/b.h5"}, limitFiles);
    EXPECT_EQ(bundle.status, 1);
    EXPECT_THAT(bundle.err, StartsWith("tidewatch: out/b.h5: "));
    EXPECT_THAT(names(), ElementsAre("in.laz"));
}

// Standard output

TEST_F(ProgramTest, AStandardOutputThatCannotBeWrittenIsAnError) {
    writeSmall();
    const auto full = run({"info", "in.h5"}, [] { ::dup2(::open("/dev/full", O_WRONLY), STDOUT_FILENO); });
    EXPECT_EQ(full.status, 1);
    EXPECT_THAT(full.err, HasSubstr("cannot write to standard output: No space left on device"));
    const auto gone = run({"info", "in.h5"}, [] {
        int ends[2];
        if (::pipe(ends) == 0) {
            ::close(ends[0]);
            ::dup2(ends[1], STDOUT_FILENO);
        }
    });
    EXPECT_EQ(gone.status, 1);
    EXPECT_THAT(gone.err, HasSubstr("cannot write to standard output: Broken pipe"));
}

TEST_F(ProgramTest, WithoutAStandardOutputTheFileIsWholeAndTheStatusTells) {
    writeSmall();
    const auto result = run({"pcd", "in.h5", "--last-wins", "-o", "a.pcd"}, [] { ::close(STDOUT_FILENO); });
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(read("a.pcd"), exported(smallBundle()));
    EXPECT_EQ(
        run({"pcd", "in.h5", "--last-wins", "-o", "b.pcd", "-q"}, [] { ::close(STDOUT_FILENO); }).status, 0);
}

// Interruption

class InterruptedProgramTest : public ProgramTest, public ::testing::WithParamInterface<int> {};

TEST_P(InterruptedProgramTest, StopsWithoutATrace) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder grid(*bundle, 0, "g");
    for (unsigned number = 0; number < 10; ++number)
        grid.field("Positions", std::to_string(number), randomPoints(200'000, number));
    write("in.h5", bundle);
    Support::writeBytes(place_ / "a.pcd", "old");

    // A folder for unfinished files shows that the export has begun; writing two million lines takes far
    // longer than to notice it.
    ProgramRunner runner(place_.path(),
                         {"pcd", "in.h5", "--last-wins", "-o", "a.pcd", "--overwrite", "--precision", "17"});
    while (names().size() <= 2 && runner.isRunning())
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    runner.send(GetParam());
    const auto result = runner.finish();
    EXPECT_EQ(result.status, 130) << result.err;
    EXPECT_THAT(result.err, HasSubstr("tidewatch: interrupted; nothing was put in place\n"));
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(read("a.pcd"), "old");
    EXPECT_THAT(names(), ElementsAre("a.pcd", "in.h5"));
}

INSTANTIATE_TEST_SUITE_P(
    Signals, InterruptedProgramTest, ::testing::Values(SIGINT, SIGTERM, SIGHUP), [](const auto& signal) {
        return std::string(signal.param == SIGINT ? "Int" : signal.param == SIGTERM ? "Term" : "Hup");
    });

// bundle, sample and info

TEST_F(ProgramTest, ABundleOfABundleHoldsTheSame) {
    writeSmall();
    const auto result = run({"bundle", "in.h5", "-o", "out/again.h5"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out,
              "out/again.h5: 200 points, " + std::to_string(read("out/again.h5").size()) + " bytes\n");
    Json before = Json::parse(run({"info", "--json", "in.h5"}).out)["slices"];
    Json after = Json::parse(run({"info", "--json", "out/again.h5"}).out)["slices"];
    for (Json* const slices : {&before, &after}) {
        for (Json& slice : *slices) {
            for (Json& grid : slice["grids"])
                grid.erase("origin");
        }
    }
    EXPECT_EQ(before, after);
    EXPECT_EQ(run({"pcd", "out/again.h5", "--last-wins", "-o", "a.pcd"}).status, 0);
    EXPECT_EQ(read("a.pcd"), exported(smallBundle()));
}

TEST_F(ProgramTest, ASampleIsReproducibleFromItsSeed) {
    EXPECT_EQ(run({"sample", "--points", "5000", "-o", "a.h5"}).status, 0);
    EXPECT_EQ(run({"sample", "--points", "5000", "-o", "b.h5"}).status, 0);
    EXPECT_EQ(run({"sample", "--points", "5000", "--seed", "99", "-o", "c.h5"}).status, 0);
    EXPECT_EQ(read("a.h5"), read("b.h5"));
    EXPECT_NE(read("a.h5"), read("c.h5"));
    const auto refused = run({"sample", "--points", "5000", "-o", "a.h5"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.err, HasSubstr("a.h5: already exists"));
}

TEST_F(ProgramTest, ASampleExportsToPcd) {
    ASSERT_EQ(run({"sample", "--points", "5000", "-o", "a.h5", "-q"}).status, 0);
    const auto result = run({"pcd", "a.h5", "-o", "out/{time}-{grid}.pcd", "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    const Json document = Json::parse(result.out);
    EXPECT_GE(document["files"].size(), 2U);
    for (const Json& file : document["files"])
        EXPECT_GT(file["points"], 0);
}

TEST_F(ProgramTest, InfoTellsBoundsOnRequest) {
    writeSmall();
    EXPECT_THAT(run({"info", "in.h5", "--fields"}).out, Not(HasSubstr("    from (")));
    const auto result = run({"info", "in.h5", "--bounds", "--fields"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, AllOf(HasSubstr("2 time slices, 3 grids, 200 points"),
                                  HasSubstr("grid \"dunes\": 150 points"), HasSubstr("    from (")));
}

// Real data

TEST_F(ProgramTest, ARealLazFileBecomesAPcdFileOfThinnedPoints) {
    TIDEWATCH_NEED_SHARED(autzen, "autzen_trim.laz");
    const auto result = run({"pcd", autzen, "-o", "autzen.pcd", "--cell-size", "5", "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    const std::string text = read("autzen.pcd");
    EXPECT_THAT(text, AllOf(HasSubstr("\nFIELDS x y z intensity rgb\n"), HasSubstr("\nWIDTH 110000\n"),
                            HasSubstr("\nPOINTS 110000\n")));
    const Json document = Json::parse(result.out);
    const std::size_t header = 14;
    EXPECT_EQ(document["files"][0]["points"], lines(text) - header);
    EXPECT_THAT(result.err, AllOf(HasSubstr("Classification"), HasSubstr("coordinate reference system")));
}

TEST_F(ProgramTest, FragmentsChangeNoByteOfAPcdFile) {
    write("in.laz", variedLas(20'000));
    EXPECT_EQ(run({"pcd", "in.laz", "-o", "a.pcd", "--cell-size", "5"}).status, 0);
    EXPECT_EQ(run({"pcd", "in.laz", "-o", "b.pcd", "--cell-size", "5", "--fragment-points", "1700",
                   "--memory-limit", "938K"})
                  .status,
              0);
    EXPECT_EQ(read("a.pcd"), read("b.pcd"));
}

TEST_F(ProgramTest, InfoShowsThePointsAndFieldsOfRealFiles) {
    const std::vector<std::pair<std::string, int>> files{
        {"1.2-with-color.las", 1065}, {"autzen_trim.laz", 110000}, {"autzen_trim_7.las", 110000},
        {"epsg_4326.las", 5380},      {"extrabytes.las", 1065},    {"test1_4.las", 1000}};
    for (const auto& [name, points] : files) {
        TIDEWATCH_NEED_SHARED(sample, name);
        const auto result = run({"info", "--json", sample});
        EXPECT_EQ(result.status, 0) << result.err;
        const Json document = Json::parse(result.out);
        EXPECT_EQ(document["points"], points) << name;
        EXPECT_THAT(result.out, AllOf(HasSubstr("\"Positions\""), HasSubstr("\"Intensity\""),
                                      HasSubstr("\"Classification\"")));
    }
}

TEST_F(ProgramTest, ABundleOfFilesGivesTheSamePcdFilesAsTheFiles) {
    write("first.laz", variedLas(10'000));
    write("second.las", variedLas(1000));
    ASSERT_EQ(run({"bundle", "first.laz", "second.las", "-o", "both.h5"}).status, 0);
    EXPECT_EQ(run({"pcd", "first.laz", "second.las", "-o", "direct/{grid}.pcd", "--cell-size", "2"}).status,
              0);
    EXPECT_EQ(run({"pcd", "both.h5", "-o", "bundled/{grid}.pcd", "--cell-size", "2"}).status, 0);
    EXPECT_EQ(read("direct/first.pcd"), read("bundled/first.pcd"));
    EXPECT_EQ(read("direct/second.pcd"), read("bundled/second.pcd"));
    EXPECT_EQ(run({"pcd", "first.laz", "second.las", "--last-wins", "-o", "direct.pcd"}).status, 0);
    EXPECT_EQ(run({"pcd", "both.h5", "--last-wins", "-o", "bundled.pcd"}).status, 0);
    EXPECT_EQ(read("direct.pcd"), read("bundled.pcd"));
}

TEST_F(ProgramTest, StrictAcceptsABundleOfALasFileSinceNothingIsLost) {
    auto file = variedLas(10);
    file.vlrs.push_back({"Somebody", 1, "a record"});
    write("in.las", file);
    const auto result = run({"bundle", "in.las", "-o", "a.h5", "--strict"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(run({"las", "a.h5", "-o", "bundled.las"}).status, 0);
    EXPECT_THAT(read("bundled.las"), HasSubstr("a record"));
}

TEST_F(ProgramTest, InfoOfALazFileStartsNothingAndLoadsNeitherHdf5NorGdal) {
    write("a.laz", variedLas(100));
    const auto result = run({"info", "a.laz"}, [] { ::setenv("LD_DEBUG", "files", 1); });
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr("liblaszip"));
    // A program that it started would tell of its libraries, too, and the line for itself ends with "tidewatch-read".
    for (const char* const other : {"libhdf5", "libgdal", "libtidewatch-bundles", "libtidewatch-rasters",
                                    "tidewatch-read\n", "libseccomp"})
        EXPECT_THAT(result.err, Not(HasSubstr(other)));
}

TEST_F(ProgramTest, InfoGoesOnWithTheNextInputAndTellsOfTheBadOnes) {
    write("good.laz", variedLas(100));
    Support::writeBytes(place_ / "bad.h5", "\x89HDF\r\n\x1a\nand nothing else");
    const auto result = run({"info", "bad.h5", "good.laz", "missing.las"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.out, HasSubstr("good.laz"));
    EXPECT_THAT(result.err, HasSubstr("tidewatch: bad.h5: "));
    EXPECT_THAT(result.err, HasSubstr("tidewatch: missing.las: "));
}

TEST_F(ProgramTest, InfoGoesOnBehindDamagedPoints) {
    write("good.laz", variedLas(5000));
    std::string bytes = read("good.laz");
    for (std::size_t place = bytes.size() / 2; place < bytes.size() / 2 + 200; ++place)
        bytes[place] = static_cast<char>(~bytes[place]);
    Support::writeBytes(place_ / "bad.laz", bytes);
    for (const char* const option : {"--stats", "--bounds"}) {
        const auto result = run({"info", "bad.laz", "good.laz", option});
        EXPECT_EQ(result.status, 1) << option;
        EXPECT_THAT(result.out, AllOf(HasSubstr("good.laz"), HasSubstr("bad.laz"))) << option;
        EXPECT_THAT(result.err, HasSubstr("tidewatch: bad.laz: ")) << option;
    }
    const auto whole = run({"info", "bad.laz", "good.laz", "--stats"});
    EXPECT_THAT(whole.out, AllOf(HasSubstr("grid \"good\" at time 0: "), HasSubstr("Classification"),
                                 Not(HasSubstr("grid \"bad\" at time"))));
}

TEST_F(ProgramTest, InfoOfAThousandFilesFitsAScreen) {
    ProgramRunner::Arguments arguments{"info"};
    for (int i = 0; i < 1000; ++i) {
        arguments.push_back(std::to_string(i) + ".las");
        write(arguments.back(), variedLas(5));
    }
    const auto result = run(arguments);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_LE(lines(result.out), 50U);
    EXPECT_THAT(result.out, HasSubstr("... and 960 more"));
}

TEST_F(ProgramTest, ExportTellsOfAllBadInputsAndWritesNothing) {
    write("good.laz", variedLas(100));
    Support::writeBytes(place_ / "bad.h5", "\x89HDF\r\n\x1a\nand nothing else");
    const auto result = run({"las", "bad.h5", "good.laz", "missing.las", "-o", "out.laz"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("bad.h5: "));
    EXPECT_THAT(result.err, HasSubstr("missing.las: "));
    EXPECT_THAT(names(), ElementsAre("bad.h5", "good.laz"));
}

TEST_F(ProgramTest, VersionAsJsonTellsWhatIsInForce) {
    const auto result = run({"--version", "--json"});
    EXPECT_EQ(result.status, 0);
    const auto document = nlohmann::json::parse(result.out);
    EXPECT_TRUE(document.at("sandbox").at("seccomp").get<bool>());
    EXPECT_TRUE(document.at("sandbox").at("limits").get<bool>());
    EXPECT_TRUE(document.at("sandbox").at("landlock").is_number_unsigned());
}

TEST_F(ProgramTest, RequiredSandboxReadsWhereItIsWhole) {
    EXPECT_EQ(run({"sample", "--points", "1000", "-o", "a.h5"}).status, 0);
    EXPECT_EQ(run({"info", "--sandbox", "require", "a.h5"}).status, 0);
    EXPECT_EQ(run({"info", "--sandbox", "perhaps", "a.h5"}).status, 2);
}

} // namespace
} // namespace Tidewatch
