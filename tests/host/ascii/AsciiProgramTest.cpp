// SPDX-License-Identifier: Apache-2.0
//
// `tidewatch ascii` from outside. Where GDAL is there, it reads the grids back.
#include "ascii/AsciiBundle.hpp"
#include "host/ProgramFixture.hpp"
#include "library/report/Json.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <fcntl.h>
#include <filesystem>
#include <locale>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#ifdef TIDEWATCH_GDAL
#include <array>
#include <gdal.h>
#include <ogr_srs_api.h>
#endif

namespace Tidewatch {
namespace {

namespace fs = std::filesystem;

using Support::GridBuilder;
using Support::heldArray;
using Support::heldLattice;
using Support::namesIn;
using Support::Points;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Pair;
using ::testing::StartsWith;

class AsciiProgramTest : public ProgramFixture {
protected:
    AsciiProgramTest() : ProgramFixture({"ascii"}) {}

    /// A cloud of two points and a grid of three cells.
    void writeSmall() const {
        const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
        GridBuilder(*bundle, 0, "cloud")
            .field("Positions", "n", Points{{1, 2, 3}, {4, 5, 6}})
            .field("Id", "n", std::vector<int>{7, -8});
        GridBuilder(*bundle, 0, "dem")
            .field("Positions", "w", heldLattice({10, 20, 0}, {2, 2, 1}, {3, 1, 1}))
            .field("Height", "w", heldArray<float>({3, 1, 1}, {1.5F, 2, 2.5F}))
            .field("CellType", "w", heldArray<unsigned char>({3, 1, 1}, {1, 0, 3}));
        write("in.h5", bundle);
    }
    [[nodiscard]] std::map<std::string, std::string> tree(const std::string& folder) const {
        return Support::treeOf(place_.path() / folder);
    }
};

const std::string header =
    "NCOLS 3\nNROWS 1\nXLLCENTER 10.000\nYLLCENTER 20.000\nCELLSIZE 2.000\nNODATA_VALUE "
    "-9999.\n";

TEST_F(AsciiProgramTest, WritesAFileForEachFragmentOfEachField) {
    writeSmall();
    const auto result = run({"in.h5", "-o", "out"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(tree("out"), ElementsAre(Pair("CellType/w.grd", header + " 1  0  3 \n"),
                                         Pair("Height/w.grd", header + " 1.500000  2.000000  2.500000 \n"),
                                         Pair("Id/n.asc", " 7\n -8\n"),
                                         Pair("Positions/n.asc",
                                              " 1.000000 2.000000 3.000000\n 4.000000 5.000000 6.000000\n")));
    EXPECT_EQ(result.out, "out/CellType/w.grd: 3 cells, 95 bytes\n"
                          "out/Height/w.grd: 3 cells, 116 bytes\n"
                          "out/Id/n.asc: 2 points, 7 bytes\n"
                          "out/Positions/n.asc: 2 points, 56 bytes\n");
}

TEST_F(AsciiProgramTest, CellTypesFilterFieldAndPrecisionReachTheGrid) {
    writeSmall();
    EXPECT_EQ(run({"in.h5", "-o", "a", "--field", "Height", "--precision", "2", "--cell-types", "1"}).status,
              0);
    EXPECT_THAT(tree("a"), ElementsAre(Pair("Height/w.grd", header + " 1.50 -9999. -9999. \n")));
    EXPECT_EQ(run({"in.h5", "-o", "b", "--field", "Height", "--cell-types", "0,2:4"}).status, 0);
    EXPECT_THAT(tree("b"), ElementsAre(Pair("Height/w.grd", header + "-9999.  2.000000  2.500000 \n")));
    EXPECT_EQ(run({"in.h5", "-o", "c", "--field", "Height", "--tile-suffix"}).status, 0);
    EXPECT_THAT(namesIn(place_.path() / "c"), ElementsAre("Height/w_10_20.grd"));

    const auto lost = run({"in.h5", "-o", "d", "--field", "Height", "--filter-field", "Mask"});
    EXPECT_EQ(lost.status, 0);
    EXPECT_THAT(tree("d"), ElementsAre(Pair("Height/w.grd", "")));
    EXPECT_THAT(lost.err, HasSubstr("there is no field \"Mask\" of cell types"));
    EXPECT_EQ(run({"in.h5", "-o", "e", "--field", "Height", "--filter-field", "Mask", "--strict"}).status, 1);
    EXPECT_FALSE(fs::exists(place_.path() / "e"));
}

TEST_F(AsciiProgramTest, ValuesThatMakeNoSenseAreWrongUsage) {
    writeSmall();
    for (const ProgramRunner::Arguments& more :
         std::vector<ProgramRunner::Arguments>{{"--cell-types", ""},
                                               {"--cell-types", "1,"},
                                               {"--cell-types", "3:1"},
                                               {"--cell-types", "land"},
                                               {"--cell-types", "1", "--cell-types", "2"},
                                               {"--precision", "-1"},
                                               {"--precision", "4294967296"},
                                               {"--ref-level", "all"},
                                               {"--append=no way"},
                                               {"--filter-field"}}) {
        ProgramRunner::Arguments arguments{"in.h5", "-o", "out"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const auto result = run(arguments);
        EXPECT_EQ(result.status, 2) << ::testing::PrintToString(more);
        EXPECT_THAT(result.err, StartsWith("tidewatch: "));
    }
    EXPECT_EQ(run({"in.h5", "-o", ""}).status, 2);
    EXPECT_THAT(namesIn(place_.path()), ElementsAre("in.h5"));
}

TEST_F(AsciiProgramTest, OutputIsAFolderWhateverItsName) {
    writeSmall();
    for (const std::string name : {"plain", "with.dot", "ends/", "a/b/c", "."}) {
        const auto result = run({"in.h5", "-o", name, "--grid", "cloud", "--field", "Id"});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(Support::readBytes(place_.path() / name / "Id/n.asc"), " 7\n -8\n") << name;
    }
    Support::writeBytes(place_ / "file", "mine");
    const auto result = run({"in.h5", "-o", "file"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("file: is not a folder"));
    EXPECT_EQ(Support::readBytes(place_ / "file"), "mine");
}

TEST_F(AsciiProgramTest, FilesThatExistAreReplacedOnlyWithOverwrite) {
    writeSmall();
    fs::create_directories(place_.path() / "out/Id");
    Support::writeBytes(place_ / "out/Id/n.asc", "mine");
    Support::writeBytes(place_ / "out/Id/other.asc", "mine too");
    const auto refused = run({"in.h5", "-o", "out"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.err, HasSubstr("out/Id/n.asc: already exists; --overwrite replaces it"));
    EXPECT_THAT(tree("out"), ElementsAre(Pair("Id/n.asc", "mine"), Pair("Id/other.asc", "mine too")));

    EXPECT_EQ(run({"in.h5", "-o", "out", "--overwrite"}).status, 0);
    EXPECT_THAT(tree("out"),
                AllOf(Contains(Pair("Id/n.asc", " 7\n -8\n")), Contains(Pair("Id/other.asc", "mine too"))));
}

TEST_F(AsciiProgramTest, TileThatExistsIsNotReplacedEither) {
    writeSmall();
    fs::create_directories(place_.path() / "out/Height");
    Support::writeBytes(place_ / "out/Height/w_10_20.grd", "mine");
    const auto refused = run({"in.h5", "-o", "out", "--tile-suffix"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.err, HasSubstr("w_10_20.grd: already exists"));
    EXPECT_THAT(tree("out"), ElementsAre(Pair("Height/w_10_20.grd", "mine")));
}

TEST_F(AsciiProgramTest, WaitingForAnotherRunThatAppendsIsSaidWithoutATerminalToo) {
    writeSmall();
    fs::create_directory(place_.path() / "out");
    const int folder = ::open((place_ / "out").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(::flock(folder, LOCK_EX), 0);
    const std::string said = place_ / "said";
    ProgramRunner waiting(place_.path(), {"ascii", "in.h5", "-o", "out", "--append", "--field", "Id"}, [&] {
        ::dup2(::open(said.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
    });
    const auto hasSaid = [&] {
        return fs::exists(said) && Support::readBytes(said).find("waiting for another run that adds to files "
                                                                 "in out\n") != std::string::npos;
    };
    while (!hasSaid() && waiting.isRunning())
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_TRUE(hasSaid());
    ::close(folder);
    EXPECT_EQ(waiting.finish().status, 0);
    EXPECT_EQ(Support::readBytes(place_ / "out/Id.asc"), " 7\n -8\n");
}

TEST_F(AsciiProgramTest, AppendAddsToFilesThatExist) {
    writeSmall();
    const ProgramRunner::Arguments arguments{"in.h5",   "-o", "out",     "--append",
                                             "--field", "Id", "--field", "Positions"};
    EXPECT_EQ(run(arguments).out, "out/Id.asc: 2 points, 7 bytes\n"
                                  "out/XYZ_Coordinates.asc: 2 points, 56 bytes\n");
    const auto again = run(arguments);
    EXPECT_EQ(again.status, 0) << again.err;
    EXPECT_EQ(again.out, "out/Id.asc: 2 points, 7 bytes, appended to 7 bytes\n"
                         "out/XYZ_Coordinates.asc: 2 points, 56 bytes, appended to 56 bytes\n");
    EXPECT_EQ(Support::readBytes(place_ / "out/Id.asc"), " 7\n -8\n 7\n -8\n");
}

TEST_F(AsciiProgramTest, InputThatLiesInTheOutputIsNeverWrittenTo) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "cloud")
        .field("Positions", "", Points{{1, 2, 3}})
        .field("Id", "n", std::vector<int>{7});
    fs::create_directories(place_.path() / "out/Id");
    write("out/Id/n.asc", bundle);
    const std::string before = Support::readBytes(place_ / "out/Id/n.asc");
    for (const std::string option : {"--overwrite", "--strict"}) {
        const auto result = run({"out/Id/n.asc", "-o", "out", option});
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.err, HasSubstr("out/Id/n.asc: the output is one of the inputs"));
    }
    EXPECT_EQ(Support::readBytes(place_ / "out/Id/n.asc"), before);
}

TEST_F(AsciiProgramTest, WhatHasNoWriterIsNamedAndAnErrorWhenStrict) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "cloud")
        .field("Positions", "", Points{{1, 2, 3}})
        .field("Angle", "", std::vector<short>{7})
        .field("Wide", "", std::vector<long long>{7});
    write("in.h5", bundle);
    const auto lax = run({"in.h5", "-o", "a", "--json"});
    EXPECT_EQ(lax.status, 0);
    const Json summary = Json::parse(lax.out);
    EXPECT_EQ(summary["command"], "ascii");
    EXPECT_EQ(summary["files"][0]["path"], "a/Positions/Unfragmented.asc");
    EXPECT_EQ(summary["files"][0]["points"], 1);
    EXPECT_EQ(summary["losses"][0]["kind"], "fields");
    EXPECT_THAT(lax.err, AllOf(HasSubstr("Angle is left out: there is no writer for int16"),
                               HasSubstr("Wide is left out: there is no writer for int64")));
    const auto strict = run({"in.h5", "-o", "b", "--strict"});
    EXPECT_EQ(strict.status, 1);
    EXPECT_FALSE(fs::exists(place_.path() / "b"));
    EXPECT_EQ(run({"in.h5", "-o", "b", "--strict", "--field", "Pos*"}).status, 0);
}

TEST_F(AsciiProgramTest, GridWithoutAnythingToWriteIsSkippedAndTold) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "deep")
        .field("Positions", "", heldLattice({0, 0, 0}, {1, 1, 1}, {1, 1, 2}))
        .field("Height", "", heldArray<float>({1, 1, 2}, {1, 2}));
    GridBuilder(*bundle, 0, "fine").field("Positions", "", Points{{1, 2, 3}});
    write("in.h5", bundle);
    const auto result = run({"in.h5", "-o", "a"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(
        result.err,
        HasSubstr("grid \"deep\" at time 0: not exported: Height is left out: a grid file holds one layer, "
                  "and its lattice has 2\n"));
    const auto nothing = run({"in.h5", "-o", "b", "--grid", "deep"});
    EXPECT_EQ(nothing.status, 1);
    EXPECT_THAT(nothing.err, HasSubstr("nothing was written"));
    EXPECT_FALSE(fs::exists(place_.path() / "b"));
}

TEST_F(AsciiProgramTest, SettingsArePrintedOnRequest) {
    writeSmall();
    const auto result = run({"in.h5", "-o", "out", "--print-parameters", "--append", "--tile-suffix",
                             "--cell-types", "1:2,5", "--precision", "3", "--ref-level", "-2"});
    EXPECT_THAT(result.err, AllOf(HasSubstr("FilterField: CellType \n"), HasSubstr("RefLevel: -2 \n"),
                                  HasSubstr("Precision: 3 \n"), HasSubstr("Append modus \n"),
                                  HasSubstr("TileSuffix \n"), HasSubstr("CellTypes: 1:2 \nCellTypes: 5:5 ")));
}

/// The names that the layouts give the files of the sample survey.
std::set<std::string> sampleFiles(bool append, bool allLevels) {
    const std::vector<std::string> cloud{
        "Amplitude",       "Classification",    "EdgeOfFlightLine", "GPSTime", "Intensity",
        "NumberOfReturns", "PointSourceID",     "Positions",        "RGB",     "Reflectance",
        "ReturnNumber",    "ScanDirectionFlag", "UserData"};
    const std::vector<std::string> lattice{"CellType", "Height", "WaterDepth"};
    std::set<std::string> files;
    const auto add = [&](const std::string& field, const std::string& level, const std::string& fragment,
                         const std::string& extension) {
        fs::path path;
        if (!append)
            path /= field;
        if (allLevels)
            path /= "Skeleton" + level;
        path /= !append ? fragment : field == "Positions" ? "XYZ_Coordinates" : field;
        files.insert(path.string() + extension);
    };
    for (const std::string level : {"0", "1"}) {
        if (level == "0" && !allLevels)
            continue;
        for (const std::string& field : cloud) {
            for (const std::string strip : {"1", "2", "3", "4"})
                add(field, level, "strip" + strip + "-000", ".asc");
        }
    }
    for (const std::string& field : lattice) {
        for (const std::string part : {"east", "west"})
            add(field, "0", part, ".grd");
    }
    return files;
}

TEST_F(AsciiProgramTest, SampleSurveyIsExportedInAllFourLayouts) {
    EXPECT_EQ(ProgramRunner::run(place_.path(), {"sample", "--points", "400", "-o", "s.h5"}).status, 0);
    for (const bool append : {false, true}) {
        for (const bool allLevels : {false, true}) {
            ProgramRunner::Arguments arguments{"s.h5", "--last-wins", "-o", "out"};
            if (append)
                arguments.emplace_back("--append");
            if (allLevels)
                arguments.insert(arguments.end(), {"--ref-level", "-2"});
            const auto result = run(arguments);
            EXPECT_EQ(result.status, 0) << result.err;
            const auto names = namesIn(place_.path() / "out");
            EXPECT_EQ(std::set<std::string>(names.begin(), names.end()), sampleFiles(append, allLevels));
            EXPECT_THAT(result.err, HasSubstr("ScanAngleRank is left out: there is no writer for int8"));
            EXPECT_THAT(result.err, HasSubstr(append ? "one after the other" : "overwrote"));
            // Three times two fragments of 300 by 400 cells, the column that they share counted once.
            const std::string height = append ? (allLevels ? "Skeleton0/Height.grd" : "Height.grd")
                                              : (allLevels ? "Height/Skeleton0/east.grd" : "Height/east.grd");
            EXPECT_THAT(result.out, HasSubstr(height + (append ? ": 720000 cells" : ": 120000 cells")));
            fs::remove_all(place_.path() / "out");
        }
    }
}

TEST_F(AsciiProgramTest, TimesAndGridsGetFoldersOfTheirOwn) {
    EXPECT_EQ(ProgramRunner::run(place_.path(), {"sample", "--points", "400", "-o", "s.h5"}).status, 0);
    const auto result = run({"s.h5", "-o", "out/{grid}-{time}", "--field", "Height"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(namesIn(place_.path() / "out"),
                ElementsAre("elevation-0/Height/east.grd", "elevation-0/Height/west.grd",
                            "elevation-3/Height/east.grd", "elevation-3/Height/west.grd",
                            "elevation-6/Height/east.grd", "elevation-6/Height/west.grd"));
    EXPECT_THAT(result.err, Not(HasSubstr("overwrote")));
}

TEST_F(AsciiProgramTest, GridsHaveTheirReferenceSystemBesideThem) {
    writeSmall();
    const auto result = run({"in.h5", "-o", "out", "--crs", "EPSG:25832"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("out/Height/w.prj: 1 text, "));
    EXPECT_THAT(result.err,
                HasSubstr("grid \"cloud\" at time 0: not carried: coordinate reference system ETRS89"));
    EXPECT_THAT(result.err, Not(HasSubstr("\"dem\"")));
    const auto files = tree("out");
    ASSERT_TRUE(files.contains("Height/w.prj"));
    EXPECT_THAT(files.at("Height/w.prj"), StartsWith("PROJCS[\"ETRS_1989_UTM_Zone_32N\""));
    EXPECT_EQ(files.at("Height/w.prj").back(), '\n');

    // What stands in its way is found before any work.
    for (const char* const grid : {"out/Height/w.grd", "out/CellType/w.grd"})
        fs::remove(place_.path() / grid);
    fs::remove(place_.path() / "out/CellType/w.prj");
    EXPECT_THAT(run({"in.h5", "-o", "out", "--crs", "EPSG:25832", "--grid", "dem"}).err,
                HasSubstr("w.prj: already exists"));
    EXPECT_EQ(run({"in.h5", "-o", "none", "--grid", "dem"}).status, 0);
    EXPECT_FALSE(tree("none").contains("Height/w.prj"));
    EXPECT_THAT(run({"in.h5", "-o", "added", "--crs", "EPSG:25832", "--grid", "dem", "--append"}).err,
                HasSubstr("not carried: coordinate reference system"));
}

#ifdef TIDEWATCH_GDAL

/// Makes a raster with a system that GDAL takes.
void writeGeoTiff(const std::string& path, const OGRSpatialReferenceH system) {
    GDALAllRegister();
    const GDALDatasetH file =
        GDALCreate(GDALGetDriverByName("GTiff"), path.c_str(), 3, 2, 1, GDT_Byte, nullptr);
    std::array<double, 6> transform{500000, 10, 0, 5900000, 0, -10};
    EXPECT_EQ(GDALSetGeoTransform(file, transform.data()), CE_None);
    EXPECT_EQ(GDALSetSpatialRef(file, system), CE_None);
    GDALClose(file);
}

TEST_F(AsciiProgramTest, GridOfAGeoTiffHasItsReferenceSystemBesideIt) {
    struct Case {
        const char* text;
        const char* title;
        /// What is left where ESRI's text is read as GDAL reads it.
        const char* horizontal;
    };
    const char* const mine =
        "PROJCS[\"mine\",GEOGCS[\"WGS 84\",DATUM[\"WGS_1984\",SPHEROID[\"WGS 84\",6378137,298.257223563]],PRIMEM["
        "\"Greenwich\",0],UNIT[\"degree\",0.0174532925199433]],PROJECTION[\"Transverse_Mercator\"],PARAMETER["
        "\"latitude_of_origin\",1],PARAMETER[\"central_meridian\",2],PARAMETER[\"scale_factor\",0.9],PARAMETER["
        "\"false_easting\",3],PARAMETER[\"false_northing\",4],UNIT[\"metre\",1]]";
    for (const Case& one :
         {Case{"EPSG:32633", "EPSG:32633", "EPSG:32633"},
          Case{"EPSG:25832+5783", "EPSG:25832+5783", "EPSG:25832"}, Case{mine, "mine", mine}}) {
        const OGRSpatialReferenceH system = OSRNewSpatialReference(nullptr);
        ASSERT_EQ(OSRSetFromUserInput(system, one.text), OGRERR_NONE);
        writeGeoTiff(place_ / "in.tif", system);
        EXPECT_THAT(ProgramRunner::run(place_.path(), {"info", "in.tif"}).out,
                    HasSubstr(std::string("system        ") + one.title));
        const auto result = run({"in.tif", "-o", "out", "--overwrite"});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_THAT(result.err, Not(HasSubstr("system")));

        const GDALDatasetH grid = GDALOpen((place_ / "out/Band1/000000.grd").c_str(), GA_ReadOnly);
        ASSERT_NE(grid, nullptr);
        const OGRSpatialReferenceH found = GDALGetSpatialRef(grid);
        ASSERT_NE(found, nullptr) << one.text;
        const OGRSpatialReferenceH wanted = OSRNewSpatialReference(nullptr);
        ASSERT_EQ(OSRSetFromUserInput(wanted, one.horizontal), OGRERR_NONE);
        const OGRSpatialReferenceH plain = OSRClone(found);
        OSRStripVertical(plain);
        const char* const options[]{"IGNORE_DATA_AXIS_TO_SRS_AXIS_MAPPING=YES", "CRITERION=EQUIVALENT",
                                    nullptr};
        EXPECT_TRUE(OSRIsSameEx(plain, wanted, options)) << one.text;
        for (const OGRSpatialReferenceH each : {system, wanted, plain})
            OSRDestroySpatialReference(each);
        GDALClose(grid);
    }
}

#endif

TEST_F(AsciiProgramTest, CloudIsATextFileForEachFieldThatHasAWriter) {
    write("in.laz", variedLas(7001));
    const auto result = run({"in.laz", "-o", "text"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(namesIn(place_.path() / "text"),
                ElementsAre("Blue/000000.asc", "Classification/000000.asc", "EdgeOfFlightLine/000000.asc",
                            "GPSTime/000000.asc", "Green/000000.asc", "Intensity/000000.asc",
                            "KeyPoint/000000.asc", "NumberOfReturns/000000.asc", "PointSourceID/000000.asc",
                            "Positions/000000.asc", "RGB/000000.asc", "Red/000000.asc",
                            "ReturnNumber/000000.asc", "ScanDirectionFlag/000000.asc", "Synthetic/000000.asc",
                            "UserData/000000.asc", "Withheld/000000.asc"));
    EXPECT_THAT(result.err, HasSubstr("ScanAngleRank is left out: there is no writer for int8"));
    for (const auto& [name, text] : tree("text"))
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 7000) << name;
}

#ifdef TIDEWATCH_GDAL

TEST_F(AsciiProgramTest, GdalReadsTheReferenceSystemBesideAGrid) {
    writeSmall();
    ASSERT_EQ(run({"in.h5", "-o", "out", "--crs", "EPSG:25832", "--grid", "dem"}).status, 0);
    GDALAllRegister();
    const std::string path = place_ / "out/Height/w.grd";
    const GDALDatasetH file = GDALOpenEx(path.c_str(), GDAL_OF_RASTER, nullptr, nullptr, nullptr);
    ASSERT_NE(file, nullptr);
    EXPECT_THAT(GDALGetProjectionRef(file), HasSubstr("ETRS89 / UTM zone 32N"));
    GDALClose(file);
}

TEST_F(AsciiProgramTest, ValuesBesideNoDataOfAnotherBandAreALossOnlyWhereCellTypesChoose) {
    GDALAllRegister();
    const GDALDatasetH raster =
        GDALCreate(GDALGetDriverByName("GTiff"), (place_ / "two.tif").c_str(), 2, 1, 2, GDT_Byte, nullptr);
    ASSERT_NE(raster, nullptr);
    std::array<double, 6> transform{100, 1, 0, 200, 0, -1};
    GDALSetGeoTransform(raster, transform.data());
    std::array<unsigned char, 2> values{7, 0};
    for (const int band : {1, 2}) {
        EXPECT_EQ(GDALRasterIO(GDALGetRasterBand(raster, band), GF_Write, 0, 0, 2, 1, values.data(), 2, 1,
                               GDT_Byte, 0, 0),
                  CE_None);
        values = {7, 7};
    }
    GDALSetRasterNoDataValue(GDALGetRasterBand(raster, 1), 0);
    GDALClose(raster);

    const auto loss = HasSubstr("values of bands where another band has no-data");
    EXPECT_THAT(run({"two.tif", "-o", "all"}).err, Not(loss));
    EXPECT_THAT(run({"two.tif", "-o", "typed", "--cell-types", "1"}).err, loss);
    EXPECT_THAT(run({"two.tif", "-o", "points", "--cells-as-points"}).err, loss);
}

/// A raster as GDAL reads it.
struct Raster {
    Raster(const std::string& path, const char* driver) {
        GDALAllRegister();
        const char* const drivers[]{driver, nullptr};
        const GDALDatasetH file = GDALOpenEx(path.c_str(), GDAL_OF_RASTER, drivers, nullptr, nullptr);
        if (file == nullptr)
            throw std::runtime_error("GDAL cannot read " + path);
        width = GDALGetRasterXSize(file);
        height = GDALGetRasterYSize(file);
        GDALGetGeoTransform(file, transform);
        const GDALRasterBandH band = GDALGetRasterBand(file, 1);
        noData = GDALGetRasterNoDataValue(band, nullptr);
        values.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
        EXPECT_EQ(
            GDALRasterIO(band, GF_Read, 0, 0, width, height, values.data(), width, height, GDT_Float32, 0, 0),
            CE_None);
        GDALClose(file);
    }

    int width = 0;
    int height = 0;
    double transform[6]{};
    double noData = 0;
    std::vector<float> values;
};

class RasterProgramTest : public AsciiProgramTest {
protected:
    /// An elevation model of 30 by 20 cells with a no-data cell in each row, as a grid of text.
    void writeRaster(const std::string& name) const {
        std::ostringstream text;
        text.imbue(std::locale::classic());
        text << "ncols 30\nnrows 20\nxllcorner 1000.5\nyllcorner 2000.25\ncellsize 10\nNODATA_value -9999\n";
        for (int row = 0; row < 20; ++row) {
            for (int column = 0; column < 30; ++column)
                text << (column == row ? -9999 : row * 7.25 - column * 0.375) << ' ';
            text << '\n';
        }
        Support::writeBytes(place_ / name, text.str());
    }

    /// Exports a raster, and compares what GDAL reads of both.
    void expectSameValues(const std::string& raster, const char* driver) const {
        const auto result = run({raster, "-o", "grids", "--cell-types", "1"});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_THAT(namesIn(place_.path() / "grids"),
                    AllOf(Contains("Band1/000000.grd"), Contains("CellType/000000.grd")));
        const Raster before(raster, driver);
        const Raster after(place_ / "grids/Band1/000000.grd", "AAIGrid");
        EXPECT_EQ(after.width, before.width);
        EXPECT_EQ(after.height, before.height);
        EXPECT_EQ(after.noData, before.noData);
        for (std::size_t number = 0; number < 6; ++number)
            EXPECT_NEAR(after.transform[number], before.transform[number], 1e-6) << number;
        EXPECT_EQ(after.values, before.values);
    }
};

TEST_F(RasterProgramTest, RasterBecomesAGridThatGdalReadsToTheSameValues) {
    writeRaster("in.asc");
    expectSameValues(place_ / "in.asc", "AAIGrid");
}

TEST_F(RasterProgramTest, RealRasterBecomesAGridThatGdalReadsToTheSameValues) {
    TIDEWATCH_NEED_SHARED(raster, "autzen-dsm.tif");
    expectSameValues(raster, "GTiff");
}

TEST_F(RasterProgramTest, RasterGivesTheSameGridsByWayOfABundleFile) {
    writeRaster("in.asc");
    EXPECT_EQ(ProgramRunner::run(place_.path(), {"bundle", "in.asc", "-o", "dem.h5"}).status, 0);
    EXPECT_EQ(run({"in.asc", "-o", "direct", "--cell-types", "1", "--precision", "3"}).status, 0);
    EXPECT_EQ(run({"dem.h5", "-o", "stored", "--cell-types", "1", "--precision", "3"}).status, 0);
    EXPECT_THAT(tree("direct"), Contains(Pair("Band1/000000.grd", StartsWith("NCOLS 30\nNROWS 20\n"))));
    EXPECT_EQ(tree("direct"), tree("stored"));
}

#endif

} // namespace
} // namespace Tidewatch
