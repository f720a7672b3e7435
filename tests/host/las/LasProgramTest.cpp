// SPDX-License-Identifier: Apache-2.0
//
// `tidewatch las` from outside. What it writes is read by a plain reader of the published layout and, where
// it is compressed, by laz-perf; neither shares code with the program.
#include "convlib/Reader.hpp"
#include "host/ProgramFixture.hpp"
#include "las/ExportPointCloudToLas.hpp"
#include "library/report/Json.hpp"
#include "readers/registerReaders.hpp"
#include "support/WrittenLas.hpp"
#include "support/lazPerf.hpp"
#include "support/testName.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <limits>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

namespace Tidewatch {
namespace {

namespace fs = std::filesystem;

using Support::GridBuilder;
using Support::LasRecord;
using Support::Points;
using Support::WrittenLas;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

constexpr double step = 0.00025;

/// Two grids at time 0 and one at 6.5.
Anchor::StrongPtr<Sheaf::Bundle> smallBundle() {
    auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "dunes")
        .field("Positions", "n", randomPoints(100, 1))
        .field("Positions", "s", randomPoints(50, 2))
        .field("Intensity", "n", std::vector<unsigned short>(100, 7))
        .field("Intensity", "s", std::vector<unsigned short>(50, 900))
        .field("Echo", "n", std::vector<unsigned char>(100, 3))
        .field("Echo", "s", std::vector<unsigned char>(50, 4));
    GridBuilder(*bundle, 0, "flats").field("Positions", "n", randomPoints(30, 3));
    GridBuilder(*bundle, 6.5, "dunes").field("Positions", "n", randomPoints(20, 4));
    return bundle;
}

/// The points of a LAS or LAZ file.
std::vector<LasRecord> decode(const std::string& path) {
    const WrittenLas file = WrittenLas::read(path);
    return file.isCompressed()
               ? file.decode(Support::decodeWithLazPerf(path))
               : file.decode(file.bytes.substr(file.pointsBegin(), file.count() * file.recordLength()));
}

/// Whether the points of several files, one after the other, stand where those of another file do, within
/// half a step.
void expectSamePlaces(const std::vector<std::string>& paths, const std::string& original) {
    const WrittenLas from = WrittenLas::read(original);
    const std::vector<LasRecord> expected = decode(original);
    std::size_t place = 0;
    for (const std::string& path : paths) {
        const WrittenLas to = WrittenLas::read(path);
        double worst = 0;
        for (const LasRecord& record : decode(path)) {
            ASSERT_LT(place, expected.size()) << path;
            const LasRecord& source = expected[place++];
            const std::int32_t written[] = {record.x, record.y, record.z};
            const std::int32_t read[] = {source.x, source.y, source.z};
            for (std::size_t axis = 0; axis < 3; ++axis)
                worst = std::max(worst, std::abs(written[axis] * to.scale(axis) + to.offset(axis) -
                                                 (read[axis] * from.scale(axis) + from.offset(axis))));
        }
        EXPECT_LE(worst, step / 2 + 1e-8) << path;
    }
    EXPECT_EQ(place, expected.size());
}

class LasProgramTest : public ProgramFixture {
protected:
    LasProgramTest() : ProgramFixture({"las"}) {}

    void writeSmall() const { write("in.h5", smallBundle()); }
    [[nodiscard]] WrittenLas las(const std::string& name) const { return WrittenLas::read(place_ / name); }
};

#define TIDEWATCH_NEED_LAZ_PERF()                                                                            \
    if (const std::string missing = Support::lazPerfMissing(); !missing.empty())                             \
    GTEST_SKIP() << missing

// Versions and kinds of files

TEST_F(LasProgramTest, WritesLasOfEveryVersion) {
    writeSmall();
    for (const unsigned minor : {2U, 3U, 4U}) {
        const std::string name = "v" + std::to_string(minor) + ".las";
        const auto result = run({"in.h5", "--last-wins", "-o", name, "--time", "6.5", "--las-version",
                                 "1." + std::to_string(minor), "--day", "123", "--year", "2024"});
        EXPECT_EQ(result.status, 0) << result.err;
        const WrittenLas file = las(name);
        EXPECT_EQ(file.versionMinor(), minor);
        EXPECT_EQ(file.format(), minor == 4 ? 6U : 1U);
        EXPECT_FALSE(file.isCompressed());
        EXPECT_EQ(file.count(), 20U);
        EXPECT_EQ(file.day(), 123U);
        EXPECT_EQ(file.year(), 2024U);
        EXPECT_EQ(file.records().size(), 20U);
        EXPECT_EQ(result.out, name + ": 20 points, " + std::to_string(file.bytes.size()) + " bytes\n");
        EXPECT_EQ(result.err, "");
    }
}

TEST_F(LasProgramTest, AnUnknownVersionIsWrongUsage) {
    writeSmall();
    for (const std::string version : {"1.1", "1.5", "4", "1,4", "1.40", "", "1.4 "}) {
        const auto result = run({"in.h5", "--last-wins", "-o", "a.laz", "--las-version", version});
        EXPECT_EQ(result.status, 2) << version;
        EXPECT_THAT(result.err, AllOf(StartsWith("tidewatch: "), HasSubstr("--las-version")));
    }
    EXPECT_THAT(names(), ElementsAre("in.h5"));
}

TEST_F(LasProgramTest, ValuesThatMakeNoSenseAreWrongUsage) {
    writeSmall();
    for (const ProgramRunner::Arguments& more :
         std::vector<ProgramRunner::Arguments>{{"--point-source-id", "65536"},
                                               {"--point-source-id", "-1"},
                                               {"--day", "1.5"},
                                               {"--year", "soon"},
                                               {"--rename", "Echo"},
                                               {"--rename", "=Intensity"},
                                               {"--rename", "Echo=intensity"},
                                               {"--rename", "Echo="},
                                               {"--uncompressed=maybe"}}) {
        ProgramRunner::Arguments arguments{"in.h5", "--last-wins", "-o", "a.laz"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const auto result = run(arguments);
        EXPECT_EQ(result.status, 2) << ::testing::PrintToString(more);
        EXPECT_THAT(result.err, StartsWith("tidewatch: "));
    }
    EXPECT_THAT(names(), ElementsAre("in.h5"));
}

TEST_F(LasProgramTest, OutputsAreNamedAsTheUserExpects) {
    writeSmall();
    const std::vector<std::pair<ProgramRunner::Arguments, std::string>> cases{
        {{"cloud"}, "cloud.laz"},
        {{"out/cloud.laz"}, "out/cloud.laz"},
        {{"out/C.LAZ"}, "out/C.LAZ"},
        {{"c.las"}, "c.las"},
        {{"c.LAS"}, "c.LAS"},
        {{"plain.laz", "--uncompressed"}, "plain.las"},
        {{"plain2", "--uncompressed"}, "plain2.las"},
        {{"survey.2024/v.1"}, "survey.2024/v.1.laz"},
        {{"a.b"}, "a.b.laz"},
        {{".hidden"}, ".hidden.laz"},
        {{"with blank "}, "with blank .laz"},
        {{"d\xc3\xbcne"}, "d\xc3\xbcne.laz"},
        {{"line\nbreak.laz"}, "line\nbreak.laz"},
        {{place_ / "absolute/x"}, "absolute/x.laz"}};
    for (const auto& [output, expected] : cases) {
        ProgramRunner::Arguments arguments{"in.h5", "-q", "--last-wins", "-o"};
        arguments.insert(arguments.end(), output.begin(), output.end());
        const auto result = run(arguments);
        EXPECT_EQ(result.status, 0) << expected << ": " << result.err;
        ASSERT_TRUE(fs::exists(place_ / expected)) << expected;
        EXPECT_EQ(las(expected).isCompressed(),
                  fs::path(expected).extension() != ".las" && fs::path(expected).extension() != ".LAS");
        EXPECT_EQ(las(expected).count(), 20U);
    }
    EXPECT_THAT(names(), Not(Contains(HasSubstr("tidewatch"))));
}

TEST_F(LasProgramTest, GridsAndTimesWithDotsKeepTheirNames) {
    writeSmall();
    EXPECT_EQ(run({"in.h5", "--last-wins", "-o", "out/{grid}-{time}"}).status, 0);
    EXPECT_THAT(names(),
                ElementsAre("in.h5", "out", "out/dunes-0.laz", "out/dunes-6.5.laz", "out/flats-0.laz"));
    const auto named = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*named, 0, "a.las").field("Positions", "", randomPoints(3));
    GridBuilder(*named, 0, "a").field("Positions", "", randomPoints(4));
    write("named.h5", named);
    EXPECT_EQ(run({"named.h5", "-o", "named/{grid}"}).status, 0);
    EXPECT_EQ(las("named/a.laz").count(), 4U);
    EXPECT_EQ(las("named/a.las.laz").count(), 3U);
}

TEST_F(LasProgramTest, EachFragmentBecomesATile) {
    writeSmall();
    const auto result =
        run({"in.h5", "--last-wins", "-o", "out/x.las", "--tiles", "--time", "0", "--grid", "dunes"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(names(), ElementsAre("in.h5", "out", "out/x_n.las", "out/x_s.las"));
    EXPECT_EQ(las("out/x_n.las").count(), 100U);
    EXPECT_EQ(las("out/x_s.las").count(), 50U);
    EXPECT_THAT(result.out, StartsWith("out/x_n.las: 100 points, "));
}

TEST_F(LasProgramTest, TilesOfSeveralGridsOverwriteEachOtherAndItIsSaidOnce) {
    writeSmall();
    const auto result = run({"in.h5", "--last-wins", "-o", "x.las", "--tiles"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(names(), ElementsAre("in.h5", "x_n.las", "x_s.las"));
    EXPECT_EQ(las("x_n.las").count(), 20U);
    EXPECT_EQ(las("x_s.las").count(), 50U);
    EXPECT_THAT(result.err, HasSubstr("x_n.las holds grid \"dunes\" at time 6.5, which overwrote grid "
                                      "\"dunes\" at time 0, grid \"flats\" at time 0"));
}

TEST_F(LasProgramTest, AnOverwrittenGridIsSaid) {
    writeSmall();
    const auto result = run({"in.h5", "--last-wins", "-o", "x.laz", "--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(las("x.laz").count(), 20U);
    const Json document = Json::parse(result.out);
    EXPECT_EQ(document["command"], "las");
    EXPECT_EQ(document["files"][0]["points"], 20);
    EXPECT_EQ(document["files"][0]["grid"], "dunes");
    EXPECT_EQ(document["files"][0]["time"], 6.5);
    EXPECT_THAT(result.out, HasSubstr("\"kind\": \"overwritten\""));
    EXPECT_THAT(document["notes"], IsEmpty());
    EXPECT_THAT(document["errors"], IsEmpty());
}

// Attributes

TEST_F(LasProgramTest, RenamedFieldsBecomeAttributesBesideTheDefaultOnes) {
    writeSmall();
    const auto result = run(
        {"in.h5", "-o", "x.las", "--time", "0", "--grid", "dunes", "--rename", "Echo=UserData", "--verify"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    const auto records = las("x.las").records();
    EXPECT_EQ(records.front().userData, 3);
    EXPECT_EQ(records.back().userData, 4);
    EXPECT_EQ(records.front().intensity, 7);
    EXPECT_EQ(records.back().intensity, 900);
    EXPECT_THAT(run({"in.h5", "--last-wins", "-o", "y.las", "--time", "0", "--grid", "dunes", "--plain"}).err,
                HasSubstr("LAS does not carry the field Echo\n"));
}

TEST_F(LasProgramTest, OtherFieldsBecomeExtraBytesUnlessPlain) {
    writeSmall();
    EXPECT_EQ(run({"in.h5", "--last-wins", "-o", "x.las", "--time", "0", "--grid", "dunes", "--verify"}).err,
              "");
    const WrittenLas file = las("x.las");
    ASSERT_EQ(file.vlrs().size(), 1U);
    EXPECT_EQ(file.vlrs()[0].payload.substr(4, 5), std::string("Echo\0", 5));
    EXPECT_EQ(file.records().back().extraBytes, "\4");
}

/// Plain files are those of the exporter, whatever the program itself would add.
TEST_F(LasProgramTest, PlainFilesHaveTheBytesThatTheExporterWritesByItself) {
    write("in.laz", variedLas(2000));
    writeSmall();
    const auto written = Anchor::makeStrong<Sheaf::Bundle>();
    registerReaders();
    ConvLib::readFile(*written, place_ / "in.laz", {});
    for (const int version : {2, 3, 4}) {
        ExportLib::ExportPointCloudToLas exporter;
        exporter.bundleptr = written;
        exporter.OutputPath = place_ / "direct.laz";
        exporter.Version = version;
        exporter.Day = 5;
        exporter.Year = 2024;
        ASSERT_TRUE(exporter.Run());
        EXPECT_EQ(run({"in.laz", "-o", "plain.laz", "--overwrite", "--plain", "--verify", "--day", "5",
                       "--year", "2024", "--las-version", "1." + std::to_string(version)})
                      .status,
                  0);
        EXPECT_EQ(read("plain.laz"), read("direct.laz")) << version;
        fs::remove(place_ / "direct.laz");
    }
}

TEST_F(LasProgramTest, PlainExcludesWhatItWouldNotHeed) {
    writeSmall();
    for (const ProgramRunner::Arguments& more : std::vector<ProgramRunner::Arguments>{
             {"--scale", "0.01"}, {"--offset", "1,2,3"}, {"--crs", "EPSG:25832"}}) {
        ProgramRunner::Arguments arguments{"in.h5", "--last-wins", "-o", "a.laz", "--plain"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const auto result = run(arguments);
        EXPECT_EQ(result.status, 2);
        EXPECT_THAT(result.err, HasSubstr("--plain and " + more.front()));
    }
    for (const ProgramRunner::Arguments& more : std::vector<ProgramRunner::Arguments>{{"--scale", "0"},
                                                                                      {"--scale", "1,2"},
                                                                                      {"--offset", "1,2,3,4"},
                                                                                      {"--crs", "EPSG:1"},
                                                                                      {"--crs", "x.wkt"}}) {
        ProgramRunner::Arguments arguments{"in.h5", "--last-wins", "-o", "a.laz"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        EXPECT_EQ(run(arguments).status, 2) << ::testing::PrintToString(more);
    }
    EXPECT_THAT(names(), ElementsAre("in.h5"));
}

TEST_F(LasProgramTest, ScaleAndOffsetAreThoseAskedFor) {
    writeSmall();
    EXPECT_EQ(
        run({"in.h5", "--last-wins", "-o", "x.las", "--scale", "0.5,0.25,2", "--offset", "10", "--verify"})
            .status,
        0);
    const WrittenLas file = las("x.las");
    EXPECT_EQ(file.scale(1), 0.25);
    EXPECT_EQ(file.scale(2), 2.0);
    EXPECT_EQ(file.offset(2), 10.0);
}

TEST_F(LasProgramTest, ReferenceSystemIsSetReplacedAndRemoved) {
    writeSmall();
    auto result = run({"in.h5", "--last-wins", "-o", "x.las", "--time", "6.5", "--crs", "EPSG:25832+5783"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    WrittenLas file = las("x.las");
    EXPECT_EQ(file.at<std::uint16_t>(6), 16);
    ASSERT_EQ(file.vlrs().size(), 1U);
    EXPECT_THAT(file.vlrs()[0].payload, StartsWith("COMPD_CS["));
    result = run({"x.las", "-o", "y.las", "--las-version", "1.2", "--crs", "EPSG:25833", "--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(Json::parse(result.out)["notes"][0].get<std::string>(),
                AllOf(HasSubstr("--crs replaces ETRS89 / UTM zone 32N + DHHN92 height (EPSG:25832+5783)"),
                      HasSubstr("coordinates stay as they are")));
    file = las("y.las");
    ASSERT_EQ(file.vlrs().size(), 1U);
    EXPECT_EQ(file.vlrs()[0].recordId, 34735);
    EXPECT_EQ(run({"y.las", "-o", "z.las", "--crs", "none"}).status, 0);
    EXPECT_THAT(las("z.las").vlrs(), IsEmpty());
    EXPECT_THAT(ProgramRunner::run(place_.path(), {"info", "y.las", "--fields"}).out,
                HasSubstr("coordinate reference system: ETRS89 / UTM zone 33N (EPSG:25833)"));
    const Json info = Json::parse(ProgramRunner::run(place_.path(), {"info", "y.las", "--json"}).out);
    EXPECT_EQ(info["slices"][0]["grids"][0]["reference_system"]["code"], "EPSG:25833");
    EXPECT_THAT(ProgramRunner::run(place_.path(), {"pcd", "y.las", "-o", "y.pcd"}).err,
                HasSubstr("not carried: coordinate reference system ETRS89 / UTM zone 33N (EPSG:25833)"));
    EXPECT_THAT(run({"y.las", "-o", "plain.las", "--plain"}).err,
                HasSubstr("not carried: coordinate reference system"));
}

TEST_F(LasProgramTest, APointSourceIsGivenToAllPoints) {
    writeSmall();
    EXPECT_EQ(run({"in.h5", "--last-wins", "-o", "x.las", "--point-source-id", "65535", "--verify"}).status,
              0);
    for (const LasRecord& record : las("x.las").records())
        ASSERT_EQ(record.pointSourceId, 65535);
}

TEST_F(LasProgramTest, SettingsAreShownOnRequest) {
    writeSmall();
    const auto result = run({"in.h5", "--last-wins", "-o", "a.las", "-q", "--print-parameters", "--tiles",
                             "--day", "7", "--point-source-id", "9", "--rename", "Echo=UserData"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err,
                AllOf(HasSubstr("OutputPath: a.las "), HasSubstr("Day: 7 "), HasSubstr("Version: 4 "),
                      HasSubstr("Export as tiles "), HasSubstr("Uncompressed "),
                      HasSubstr("PointSourceID: 9 "), HasSubstr("Rename: Echo=UserData ")));
}

// Losses and errors

TEST_F(LasProgramTest, StrictRefusesALoss) {
    writeSmall();
    const ProgramRunner::Arguments arguments{"in.h5",  "-o",    "x.laz",    "--time", "0",
                                             "--grid", "dunes", "--strict", "--plain"};
    const auto refused = run(arguments);
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.out, "");
    EXPECT_THAT(refused.err, AllOf(HasSubstr("tidewatch: LAS does not carry the field Echo"),
                                   HasSubstr("nothing was put in place")));
    EXPECT_THAT(names(), ElementsAre("in.h5"));
    ProgramRunner::Arguments renamed = arguments;
    renamed.insert(renamed.end(), {"--rename", "Echo=UserData"});
    EXPECT_EQ(run(renamed).status, 0);
}

TEST_F(LasProgramTest, RenamingAFieldThatNoGridHasIsALoss) {
    writeSmall();
    const auto result =
        run({"in.h5", "--time", "0", "--grid", "dunes", "-o", "x.laz", "--rename", "Ecko=UserData"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err,
                HasSubstr("no field matches --rename 'Ecko=UserData' (case counts); there are: "));
    EXPECT_EQ(run({"in.h5", "--time", "0", "--grid", "dunes", "-o", "y.laz", "--rename", "Ecko=UserData",
                   "--strict", "--accept", "fields,properties,rounding"})
                  .status,
              1);
    EXPECT_THAT(
        run({"in.h5", "--time", "0", "--grid", "dunes", "-o", "z.laz", "--rename", "Echo=UserData"}).err,
        Not(HasSubstr("--rename")));
}

TEST_F(LasProgramTest, ACoordinateThatDoesNotFitPutsNothingInPlace) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "a").field("Positions", "", randomPoints(5));
    GridBuilder(*bundle, 0, "wide").field("Positions", "", Points{{0, 0, 0}, {2'000'000, 0, 0}});
    write("in.h5", bundle);
    Support::writeBytes(place_ / "wide.laz", "old");
    const auto result = run({"in.h5", "--last-wins", "-o", "{grid}.laz", "--overwrite"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, AllOf(HasSubstr("grid \"wide\" at time 0: x = 2000000 does not fit"),
                                  HasSubstr("from 463129.088 to 1536870.91175")));
    EXPECT_THAT(names(), ElementsAre("in.h5", "wide.laz"));
    EXPECT_EQ(Support::readBytes(place_ / "wide.laz"), "old");
}

TEST_F(LasProgramTest, DegreesAreRoundedAndItIsSaid) {
    Support::LasFileBuilder degrees;
    degrees.scale = {1e-7, 1e-7, 0.001};
    for (const auto& [x, y, z] :
         {std::array{-946'606'311, 310'473'291, 78'119}, std::array{-946'607'505, 310'473'291, 78'119},
          std::array{-946'834'654, 310'367'341, 39'081}}) {
        LasRecord& point = degrees.points.emplace_back();
        point.x = x;
        point.y = y;
        point.z = z;
    }
    write("in.las", degrees);
    const auto result = run({"in.las", "-o", "x.laz", "--plain"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err,
                HasSubstr("coordinates are rounded by up to 0.00012, more than the input's step of "
                          "1e-07 allows; LAS files are written in steps of 0.00025"));
    EXPECT_EQ(run({"in.las", "-o", "y.laz", "--strict", "--plain"}).status, 1);
    EXPECT_THAT(names(), ElementsAre("in.las", "x.laz"));
    EXPECT_EQ(run({"in.las", "-o", "y.laz", "--strict"}).status, 0) << "the input's own steps keep them";
}

TEST_F(LasProgramTest, AGridWithoutPositionsEndsItsSliceAndCompleteFilesAreInPlace) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "a").field("Positions", "n", randomPoints(5));
    GridBuilder(*bundle, 0, "b").field("Positions", "s", std::vector<double>(3));
    GridBuilder(*bundle, 0, "c").field("Positions", "n", randomPoints(7));
    GridBuilder(*bundle, 1, "d").field("Positions", "n", randomPoints(8));
    write("in.h5", bundle);
    const auto result = run({"in.h5", "--last-wins", "-o", "x.las", "--tiles", "--json"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err,
                AllOf(HasSubstr("tidewatch: No positions to export\n"),
                      HasSubstr("grid \"b\" at time 0: fragment \"s\" has no positions to export (it has no "
                                "position stored as a point); nothing after it at that time is exported, and "
                                "no grid \"c\"")));
    EXPECT_EQ(las("x_n.las").count(), 8U);
    EXPECT_EQ(las("x_s.las").count(), 0U);
    EXPECT_THAT(Json::parse(result.out)["errors"], ElementsAre("No positions to export"));
}

TEST_F(LasProgramTest, NothingWrittenHasStatusOneAndAReason) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "g").field("Height", "", std::vector<float>{1});
    write("in.h5", bundle);
    const auto result = run({"in.h5", "--last-wins", "-o", "x.laz"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("nothing was written: grid \"g\" at time 0: it has no Positions"));
    EXPECT_THAT(names(), ElementsAre("in.h5"));
}

TEST_F(LasProgramTest, ReturnNumbersThatDoNotFitAreWarnedOfByTheExporterAndTheSummary) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "", randomPoints(3))
        .field("ReturnNumber", "", std::vector<unsigned char>{1, 9, 20});
    write("in.h5", bundle);
    const auto result = run({"in.h5", "-o", "x.las", "--las-version", "1.2", "--verify", "--verbose"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(
        result.err,
        AllOf(HasSubstr("Warning: For 2 points the return number exceeds the las-specs! (greater than "
                        "5 or 15 if extended)\n"),
              HasSubstr("2 points have return numbers above 7, which become 7")));
    EXPECT_EQ(las("x.las").records()[1].returnNumber, 7);
}

TEST_F(LasProgramTest, CountsByReturnThatDifferAreANoteThatStrictAccepts) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", randomPoints(2))
        .field("Positions", "b", randomPoints(3))
        .field("ReturnNumber", "a", std::vector<unsigned char>{2, 2});
    write("in.h5", bundle);
    const auto result = run({"in.h5", "--last-wins", "-o", "x.laz", "--verify", "--json", "--plain"});
    EXPECT_EQ(result.status, 0);
    const std::string note =
        "x.laz: the exporter counts points by return in its own way, which --plain keeps: 3 of return 1 in the "
        "header, 0 in the file; 2 of return 2 in the header, 5 in the file";
    EXPECT_THAT(result.err, HasSubstr("tidewatch: warning: " + note + "\n"));
    EXPECT_THAT(Json::parse(result.out)["notes"], ElementsAre(note));
}

// Existing files and failures

TEST_F(LasProgramTest, ExistingFilesAreFoundBeforeAnyWorkUnderTheirFinalNames) {
    writeSmall();
    Support::writeBytes(place_ / "x.laz", "old");
    Support::writeBytes(place_ / "x_s.laz", "old");
    for (const ProgramRunner::Arguments& arguments : std::vector<ProgramRunner::Arguments>{
             {"in.h5", "-o", "x"}, {"in.h5", "-o", "x.laz"}, {"in.h5", "-o", "x", "--tiles"}}) {
        const auto result = run(arguments);
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.err, HasSubstr("already exists; --overwrite replaces it"));
        // The exporter would have said something about its run by now.
        EXPECT_THAT(result.err, Not(HasSubstr("warning")));
    }
    EXPECT_EQ(Support::readBytes(place_ / "x.laz"), "old");
    EXPECT_THAT(names(), ElementsAre("in.h5", "x.laz", "x_s.laz"));
    EXPECT_EQ(run({"in.h5", "--last-wins", "-o", "x", "--tiles", "--overwrite"}).status, 0);
    EXPECT_EQ(Support::readBytes(place_ / "x.laz"), "old");
    EXPECT_EQ(las("x_s.laz").count(), 50U);
}

TEST_F(LasProgramTest, TilesOfTwoRunsThatComeToOneNameAreAnErrorBeforeAnyWork) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "a").field("Positions", "b_c", randomPoints(5));
    GridBuilder(*bundle, 0, "a_b").field("Positions", "c", randomPoints(5));
    write("in.h5", bundle);
    const auto result = run({"in.h5", "--last-wins", "-o", "{grid}.laz", "--tiles"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("a_b_c.laz: is the target of two files"));
    EXPECT_THAT(names(), ElementsAre("in.h5"));
}

TEST_F(LasProgramTest, TheInputIsNeverTheOutput) {
    write("x.las", variedLas(100));
    const std::string before = Support::readBytes(place_ / "x.las");
    const auto result = run({"x.las", "-o", "x.las", "--overwrite"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("one of the inputs"));
    EXPECT_EQ(run({"x.las", "-o", "x", "--uncompressed", "--overwrite"}).status, 1);
    EXPECT_EQ(Support::readBytes(place_ / "x.las"), before);
    EXPECT_EQ(run({"x.las", "-o", "x.laz"}).status, 0);
}

TEST_F(LasProgramTest, AFullDiskIsAnErrorThatLeavesEarlierFiles) {
    write("in.laz", variedLas(20'010));
    for (const std::string output : {"x.las", "x.laz"}) {
        for (const std::string tiles : {"", "--tiles"}) {
            Support::writeBytes(place_ / output, "old");
            ProgramRunner::Arguments arguments{"in.laz", "-o", output, "--overwrite", "--fragment-points",
                                               "20000"};
            if (!tiles.empty())
                arguments.push_back(tiles);
            // The signal that usually comes with it is the program's own business.
            const auto result = run(arguments, [] {
                const struct rlimit limit { 30'000, 30'000 };
                ::setrlimit(RLIMIT_FSIZE, &limit);
            });
            EXPECT_EQ(result.status, 1) << output << tiles;
            EXPECT_THAT(result.err, HasSubstr(": writing failed"));
            EXPECT_EQ(Support::readBytes(place_ / output), "old");
            fs::remove(place_ / output);
            EXPECT_THAT(names(), ElementsAre("in.laz"));
        }
    }
}

/// Waits until the folder for unfinished files is there, which shows that the export has begun; gives its
/// path.
fs::path awaitStaging(const fs::path& place, ProgramRunner& runner) {
    while (runner.isRunning()) {
        for (const auto& entry : fs::directory_iterator(place)) {
            if (entry.is_directory() && entry.path().filename().string().starts_with("tidewatch-"))
                return entry.path();
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return {};
}

Anchor::StrongPtr<Sheaf::Bundle> largeBundle() {
    auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder grid(*bundle, 0, "g");
    for (unsigned number = 0; number < 10; ++number)
        grid.field("Positions", std::to_string(number), randomPoints(200'000, number));
    return bundle;
}

TEST_F(LasProgramTest, AnOutputFolderThatDisappearsIsAnErrorWithoutACrash) {
    write("in.h5", largeBundle());
    Support::writeBytes(place_ / "x.laz", "old");
    ProgramRunner runner(place_.path(), {"las", "in.h5", "-o", "x.laz", "--tiles", "--overwrite"});
    const fs::path staging = awaitStaging(place_.path(), runner);
    ASSERT_FALSE(staging.empty()) << "the program ended too soon";
    std::error_code ignored;
    // Files may be made in it while it is being emptied.
    for (int tries = 0; tries < 100 && fs::exists(staging); ++tries)
        fs::remove_all(staging, ignored);
    const auto result = runner.finish();
    EXPECT_EQ(result.status, 1) << result.err;
    EXPECT_THAT(result.err, AllOf(HasSubstr("tidewatch: "),
                                  ::testing::AnyOf(HasSubstr("x_"), HasSubstr("unfinished files"))));
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(Support::readBytes(place_ / "x.laz"), "old");
    EXPECT_THAT(names(), ElementsAre("in.h5", "x.laz"));
}

class InterruptedLasTest : public LasProgramTest, public ::testing::WithParamInterface<int> {};

TEST_P(InterruptedLasTest, StopsWithoutATrace) {
    write("in.h5", largeBundle());
    Support::writeBytes(place_ / "x.laz", "old");
    ProgramRunner runner(place_.path(), {"las", "in.h5", "-o", "x.laz", "--overwrite", "--verify"});
    ASSERT_FALSE(awaitStaging(place_.path(), runner).empty()) << "the program ended too soon";
    runner.send(GetParam());
    const auto result = runner.finish();
    EXPECT_EQ(result.status, 130) << result.err;
    EXPECT_THAT(result.err, HasSubstr("tidewatch: interrupted; nothing was put in place\n"));
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(Support::readBytes(place_ / "x.laz"), "old");
    EXPECT_THAT(names(), ElementsAre("in.h5", "x.laz"));
}

INSTANTIATE_TEST_SUITE_P(
    Signals, InterruptedLasTest, ::testing::Values(SIGINT, SIGTERM, SIGHUP), [](const auto& signal) {
        return std::string(signal.param == SIGINT ? "Int" : signal.param == SIGTERM ? "Term" : "Hup");
    });

TEST_F(LasProgramTest, ProgressIsShownOnRequestOnly) {
    writeSmall();
    EXPECT_THAT(run({"in.h5", "--last-wins", "-o", "a.laz"}).err, Not(HasSubstr("[#")));
    const auto result = run({"in.h5", "--last-wins", "-o", "b.laz", "--verify", "--progress", "always"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, AllOf(HasSubstr("reading dunes"), HasSubstr("writing flats"),
                                  HasSubstr("checking b.laz"), HasSubstr("] 100 %")));
}

TEST_F(LasProgramTest, TheMemoryLimitChangesNoByte) {
    writeSmall();
    EXPECT_EQ(run({"in.h5", "--last-wins", "-o", "a-{grid}-{time}.laz", "--verify"}).status, 0);
    EXPECT_EQ(run({"in.h5", "--last-wins", "-o", "b-{grid}-{time}.laz", "--verify", "--memory-limit", "16K"})
                  .status,
              0);
    for (const std::string name : {"dunes-0.laz", "flats-0.laz", "dunes-6.5.laz"})
        EXPECT_EQ(las("a-" + name).bytes, las("b-" + name).bytes);
}

// Real data

struct Run {
    const char* name;
    ProgramRunner::Arguments arguments;
    std::vector<std::string> files;
    unsigned minor;

    friend void PrintTo(const Run& run, std::ostream* out) { *out << run.name; }
};

class AutzenTest : public LasProgramTest, public ::testing::WithParamInterface<Run> {};

TEST_P(AutzenTest, IndependentReadersFindTheSamePoints) {
    TIDEWATCH_NEED_SHARED(autzen, "autzen_trim.laz");
    TIDEWATCH_NEED_LAZ_PERF();
    ProgramRunner::Arguments arguments{autzen, "-o", "out/autzen.laz", "--plain"};
    arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
    const auto result = run(arguments);
    EXPECT_EQ(result.status, 0) << result.err;
    std::vector<std::string> paths;
    for (const std::string& file : GetParam().files)
        paths.push_back(place_ / ("out/" + file));
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(place_ / "out"))
        found.push_back(entry.path());
    std::sort(found.begin(), found.end());
    ASSERT_EQ(found, paths);
    expectSamePlaces(paths, autzen);

    // The attributes; the input has point format 3.
    const std::vector<LasRecord> source = decode(autzen);
    const auto largest = [](const LasRecord& record) {
        return *std::max_element(record.rgb.begin(), record.rgb.end());
    };
    const bool isWide = std::any_of(source.begin(), source.end(),
                                    [&](const LasRecord& record) { return largest(record) > 255; });
    std::size_t place = 0;
    for (const std::string& path : paths) {
        EXPECT_EQ(WrittenLas::read(path).versionMinor(), GetParam().minor);
        for (const LasRecord& record : decode(path)) {
            LasRecord expected = source[place++];
            expected.x = record.x;
            expected.y = record.y;
            expected.z = record.z;
            expected.extraBytes = record.extraBytes;
            expected.flags = 0;
            if (isWide) {
                for (std::uint16_t& channel : expected.rgb)
                    channel = static_cast<std::uint16_t>(channel >> 8);
            }
            if (GetParam().minor != 4)
                expected.gpsTime = 0;
            ASSERT_EQ(record, expected) << path << " " << place;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Runs, AutzenTest,
                         ::testing::Values(Run{"Version4", {}, {"autzen.laz"}, 4},
                                           Run{"Version2", {"--las-version", "1.2"}, {"autzen.laz"}, 2},
                                           Run{"Version3", {"--las-version", "1.3"}, {"autzen.laz"}, 3},
                                           Run{"Uncompressed", {"--uncompressed"}, {"autzen.las"}, 4},
                                           Run{"Tiles",
                                               {"--tiles", "--fragment-points", "25000"},
                                               {"autzen_000000.laz", "autzen_000001.laz", "autzen_000002.laz",
                                                "autzen_000003.laz", "autzen_000004.laz"},
                                               4}),
                         [](const auto& run) { return run.param.name; });

struct Trip {
    const char* name;
    std::uint64_t points;

    friend void PrintTo(const Trip& trip, std::ostream* out) { *out << trip.name; }
};

class RoundTripTest : public LasProgramTest,
                      public ::testing::WithParamInterface<std::tuple<Trip, int, std::string>> {};

TEST_P(RoundTripTest, EveryFileIsWrittenVerifiedAndFoundInPlace) {
    const auto& [trip, minor, extension] = GetParam();
    TIDEWATCH_NEED_SHARED(sample, trip.name);
    const std::string output = "out/x" + extension;
    // Small fragments, so that files and fragments are not cut alike.
    const auto result = run({sample, "-o", output, "--las-version", "1." + std::to_string(minor), "--verify",
                             "--fragment-points", "30000"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(las(output).count(), trip.points);
    EXPECT_THAT(result.err, Not(HasSubstr("counts points by return")));
    TIDEWATCH_NEED_LAZ_PERF();
    expectSamePlaces({place_ / output}, sample);
}

INSTANTIATE_TEST_SUITE_P(
    Files, RoundTripTest,
    ::testing::Combine(::testing::Values(Trip{"1.2-with-color.las", 1065}, Trip{"autzen_trim.laz", 110'000},
                                         Trip{"autzen_trim_7.las", 110'000}, Trip{"epsg_4326.las", 5380},
                                         Trip{"extrabytes.las", 1065}, Trip{"test1_4.las", 1000}),
                       ::testing::Values(2, 3, 4), ::testing::Values<std::string>(".las", ".laz")),
    [](const auto& one) {
        return Support::testName(std::get<0>(one.param).name) + "Version" +
               std::to_string(std::get<1>(one.param)) + Support::testName(std::get<2>(one.param));
    });

TEST_F(LasProgramTest, FragmentsChangeNoByte) {
    write("in.laz", variedLas(20'000));
    EXPECT_EQ(run({"in.laz", "-o", "a.laz", "--day", "1", "--year", "2024"}).status, 0);
    EXPECT_EQ(run({"in.laz", "-o", "b.laz", "--day", "1", "--year", "2024", "--fragment-points", "1700",
                   "--memory-limit", "100K"})
                  .status,
              0);
    EXPECT_EQ(las("a.laz").bytes, las("b.laz").bytes);
}

} // namespace
} // namespace Tidewatch
