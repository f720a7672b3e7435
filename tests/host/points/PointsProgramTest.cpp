// SPDX-License-Identifier: Apache-2.0
//
// Choosing and merging points from outside: LAS files of the tests' own builder go in, and what comes out is read by a
// plain reader of the published layout.
#include "host/ProgramFixture.hpp"
#include "library/report/Json.hpp"
#include "sheaf/UniformCartesianArray.hpp"
#include "support/WrittenLas.hpp"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using Support::GridBuilder;
using Support::LasFileBuilder;
using Support::LasRecord;
using Support::Points;
using Support::WrittenLas;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

class PointsProgram : public ProgramFixture {
protected:
    /// Points of which the first coordinates count on from a number.
    void writeRow(const std::string& name, std::int32_t first, std::size_t count,
                  const std::function<void(LasRecord&, std::size_t)>& change = {}) const {
        LasFileBuilder file;
        file.format = 1;
        for (std::size_t i = 0; i < count; ++i) {
            LasRecord point;
            point.x = first + static_cast<std::int32_t>(i);
            point.classification = static_cast<std::uint8_t>(i % 10);
            point.numberOfReturns = static_cast<std::uint8_t>(1 + i % 3);
            point.returnNumber = static_cast<std::uint8_t>(1 + i % point.numberOfReturns);
            if (change)
                change(point, i);
            file.points.push_back(point);
        }
        write(name, file);
    }

    [[nodiscard]] std::vector<std::string> namesIn(const std::string& folder) const {
        std::vector<std::string> all;
        for (const auto& entry : std::filesystem::directory_iterator(place_ / folder))
            all.push_back(entry.path().filename().string());
        std::sort(all.begin(), all.end());
        return all;
    }

    /// The stored first coordinates of an uncompressed file.
    [[nodiscard]] std::vector<std::int32_t> xOf(const std::string& name) const {
        std::vector<std::int32_t> all;
        for (const LasRecord& record : WrittenLas::read(place_ / name).records())
            all.push_back(record.x);
        return all;
    }
};

TEST_F(PointsProgram, MergeMakesOneFileOfInputsOfOneNameInTheirOrder) {
    std::filesystem::create_directories(place_ / "a");
    std::filesystem::create_directories(place_ / "b");
    writeRow("a/tile.las", 100, 3);
    writeRow("b/tile.laz", 0, 2);
    const auto result = run({"las", "a/tile.las", "b/tile.laz", "--merge", "-o", "out.las"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(xOf("out.las"), ElementsAre(100, 101, 102, 0, 1));
    const auto reversed = run({"las", "b/tile.laz", "a/tile.las", "--merge", "-o", "back.las", "--verify"});
    EXPECT_EQ(reversed.status, 0) << reversed.err;
    EXPECT_THAT(xOf("back.las"), ElementsAre(0, 1, 100, 101, 102));
}

TEST_F(PointsProgram, MergedGridHasTheNameThatIsGiven) {
    writeRow("a.las", 0, 1);
    writeRow("b.las", 5, 1);
    EXPECT_EQ(run({"las", "a.las", "b.las", "--merge", "--grid-name", "bay", "-o", "{grid}.las"}).status, 0);
    EXPECT_THAT(xOf("bay.las"), ElementsAre(0, 5));
    EXPECT_EQ(run({"las", "a.las", "--grid-name", "bay", "-o", "x.las"}).status, 2);
    const auto slash = run({"las", "a.las", "--merge", "--grid-name", "a/b", "-o", "x.las"});
    EXPECT_EQ(slash.status, 2);
    EXPECT_THAT(slash.err, HasSubstr("--grid-name a/b"));
}

TEST_F(PointsProgram, FiltersSelectBeforeMerging) {
    writeRow("north1.las", 0, 1);
    writeRow("north2.las", 5, 1);
    writeRow("south.las", 9, 1);
    EXPECT_EQ(
        run({"las", "north1.las", "north2.las", "south.las", "--merge", "--grid", "north*", "-o", "x.las"})
            .status,
        0);
    EXPECT_THAT(xOf("x.las"), ElementsAre(0, 5));
    const auto none = run({"las", "north1.las", "--merge", "--grid", "North*", "-o", "y.las"});
    EXPECT_EQ(none.status, 1);
    EXPECT_THAT(none.err, HasSubstr("no grid matches --grid 'North*' (case counts); there are: north1"));
}

TEST_F(PointsProgram, GridsThatWouldOverwriteEachOtherAreWrongUsageUnlessTheLastWins) {
    writeRow("a.las", 0, 2);
    writeRow("b.las", 5, 1);
    const auto refused = run({"las", "a.las", "b.las", "-o", "x.las"});
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.err,
                AllOf(HasSubstr("x.las: grid \"a\" at time 0, grid \"b\" at time 0 would overwrite"),
                      HasSubstr("--merge"), HasSubstr("{grid}"), HasSubstr("--last-wins")));
    EXPECT_EQ(run({"pcd", "a.las", "b.las", "-o", "x.pcd"}).status, 2);
    EXPECT_EQ(run({"ascii", "a.las", "b.las", "-o", "x"}).status, 2);
    EXPECT_THAT(names(), ElementsAre("a.las", "b.las"));
    EXPECT_EQ(run({"ascii", "a.las", "b.las", "-o", "x", "--append"}).status, 0);
    const auto last = run({"las", "a.las", "b.las", "-o", "x.las", "--last-wins"});
    EXPECT_EQ(last.status, 0) << last.err;
    EXPECT_THAT(last.err, HasSubstr("overwrote"));
    EXPECT_THAT(xOf("x.las"), ElementsAre(5));
}

TEST_F(PointsProgram, SliceTimesAreOneForAllOrOneForEach) {
    writeRow("a.las", 0, 1);
    writeRow("b.las", 5, 1);
    EXPECT_EQ(run({"las", "a.las", "b.las", "--slice-time", "6,18.5", "-o", "{grid}-{time}.las"}).status, 0);
    EXPECT_THAT(names(), ElementsAre("a-6.las", "a.las", "b-18.5.las", "b.las"));
    EXPECT_EQ(run({"las", "a.las", "b.las", "--slice-time", "-2", "-o", "{grid}{time}.las"}).status, 0);
    EXPECT_THAT(xOf("b-2.las"), ElementsAre(5));
    const auto three = run({"las", "a.las", "b.las", "--slice-time", "1,2,3", "-o", "{grid}{time}.las"});
    EXPECT_EQ(three.status, 2);
    EXPECT_THAT(three.err, HasSubstr("--slice-time has 3 times for 2 inputs"));
}

TEST_F(PointsProgram, SquaresBecomeFilesFragmentsOrFolders) {
    // Steps of 0.01: x from 0 to 0.29 and, every other point, y 0 and 1.
    writeRow("a.laz", 0, 30,
             [](LasRecord& point, std::size_t i) { point.y = static_cast<std::int32_t>(i % 2 * 100); });
    writeRow("b.las", 5, 2);
    const auto files =
        run({"las", "a.laz", "b.las", "--merge", "--tile-size", "0.1", "-o", "t/{tile}.las", "--verify"});
    EXPECT_EQ(files.status, 0) << files.err;
    EXPECT_THAT(namesIn("t"),
                ElementsAre("0.1_0.las", "0.1_1.las", "0.2_0.las", "0.2_1.las", "0_0.las", "0_1.las"));
    EXPECT_THAT(xOf("t/0_0.las"), ElementsAre(0, 2, 4, 6, 8, 5, 6));
    EXPECT_THAT(xOf("t/0.1_1.las"), ElementsAre(11, 13, 15, 17, 19));

    const auto tiles =
        run({"las", "a.laz", "--tiles", "--tile-size", "10", "--tile-origin", "0.15,-5", "-o", "s/x.las"});
    EXPECT_EQ(tiles.status, 0) << tiles.err;
    EXPECT_THAT(namesIn("s"), ElementsAre("x_-9.85_-5.las", "x_0.15_-5.las"));

    EXPECT_EQ(
        run({"pcd", "a.laz", "--tile-size", "0.2", "--class", "1,2", "-o", "p/{grid}-{tile}.pcd"}).status, 0);
    EXPECT_THAT(namesIn("p"), ElementsAre("a-0.2_0.pcd", "a-0.2_1.pcd", "a-0_0.pcd", "a-0_1.pcd"));
    EXPECT_EQ(run({"ascii", "a.laz", "--tile-size", "0.2", "--field", "Positions", "-o", "g/{tile}"}).status,
              0);
    EXPECT_THAT(namesIn("g"), ElementsAre("0.2_0", "0.2_1", "0_0", "0_1"));
    EXPECT_EQ(run({"bundle", "a.laz", "--tile-size", "0.2", "-o", "b.h5"}).status, 0);
    EXPECT_EQ(run({"las", "b.h5", "--tiles", "-o", "f/x.las"}).status, 0);
    EXPECT_THAT(namesIn("f"), ElementsAre("x_0.2_0.las", "x_0.2_1.las", "x_0_0.las", "x_0_1.las"));
}

TEST_F(PointsProgram, SquaresThatAreNotAskedForAreWrongUsage) {
    writeRow("a.las", 0, 3);
    const auto noSize = run({"las", "a.las", "-o", "{tile}.las"});
    EXPECT_EQ(noSize.status, 2);
    EXPECT_THAT(noSize.err, HasSubstr("--tile-size cuts points into squares"));
    EXPECT_EQ(run({"las", "a.las", "--tile-size", "0", "-o", "x.las"}).status, 2);
    EXPECT_EQ(run({"las", "a.las", "--tile-origin", "1,2", "-o", "x.las"}).status, 2);
    EXPECT_EQ(run({"las", "a.las", "--tile-size", "1", "--tile-origin", "1", "-o", "x.las"}).status, 2);
    EXPECT_THAT(names(), ElementsAre("a.las"));
}

TEST_F(PointsProgram, JobsGiveTheSameFiles) {
    writeRow("a.laz", 0, 120'000);
    for (const std::string jobs : {"1", "2", "3"}) {
        const auto result = run({"las", "a.laz", "--jobs", jobs, "-o", jobs + ".laz"});
        EXPECT_EQ(result.status, 0) << result.err;
    }
    EXPECT_TRUE(Support::readBytes(place_ / "1.laz") == Support::readBytes(place_ / "2.laz"));
    EXPECT_TRUE(Support::readBytes(place_ / "1.laz") == Support::readBytes(place_ / "3.laz"));
    EXPECT_EQ(run({"las", "a.laz", "-j", "0", "-o", "x.laz"}).status, 2);
}

TEST_F(PointsProgram, ClassesReturnsAndBoxesAreChosen) {
    writeRow("in.laz", 0, 30);
    EXPECT_EQ(run({"las", "in.laz", "--class", "2,9", "-o", "classes.las", "--verify"}).status, 0);
    EXPECT_THAT(xOf("classes.las"), ElementsAre(2, 9, 12, 19, 22, 29));
    EXPECT_EQ(run({"las", "in.laz", "--returns", "only", "--class", "0,1,2", "-o", "only.las"}).status, 0);
    EXPECT_THAT(xOf("only.las"), ElementsAre(0, 12, 21));
    // Steps of 0.01: 0.05 is inside and 0.08 is not.
    EXPECT_EQ(run({"las", "in.laz", "--box", "0.05,-1,0.08,1", "-o", "box.las"}).status, 0);
    EXPECT_THAT(xOf("box.las"), ElementsAre(5, 6, 7));
    EXPECT_EQ(run({"las", "in.laz", "--box", "-5,-1,0.02,1,-1,1", "-o", "negative.las"}).status, 0);
    EXPECT_THAT(xOf("negative.las"), ElementsAre(0, 1));
    const auto bundle = run({"bundle", "in.laz", "--class", "4", "-o", "four.h5"});
    EXPECT_EQ(bundle.status, 0) << bundle.err;
    EXPECT_THAT(bundle.out, HasSubstr("3 points"));
    EXPECT_EQ(run({"las", "four.h5", "-o", "four.las"}).status, 0);
    EXPECT_THAT(xOf("four.las"), ElementsAre(4, 14, 24));
    EXPECT_EQ(run({"ascii", "in.laz", "--class", "4", "--field", "Classification", "-o", "text"}).status, 0);
    EXPECT_EQ(
        run({"pcd", "in.laz", "--class", "4", "-o", "four.pcd", "--no-thinning", "--exact-counts"}).status,
        0);
    EXPECT_THAT(read("four.pcd"), HasSubstr("\nPOINTS 3\n"));
}

TEST_F(PointsProgram, SmallCachesAndFragmentsChooseTheSame) {
    writeRow("in.laz", 0, 20000);
    EXPECT_EQ(run({"las", "in.laz", "--class", "3,7", "-o", "a.las"}).status, 0);
    EXPECT_EQ(run({"las", "in.laz", "--class", "3,7", "--fragment-points", "777", "--memory-limit", "200K",
                   "-o", "b.las"})
                  .status,
              0);
    EXPECT_EQ(xOf("a.las").size(), 4000U);
    EXPECT_EQ(xOf("a.las"), xOf("b.las"));
}

TEST_F(PointsProgram, NothingChosenLeavesNoFileAndSaysSo) {
    writeRow("in.laz", 0, 10);
    const auto none = run({"las", "in.laz", "--class", "99", "-o", "x.las"});
    EXPECT_EQ(none.status, 1);
    EXPECT_THAT(none.err, HasSubstr("grid \"in\" at time 0: none of its points is chosen"));
    EXPECT_THAT(names(), ElementsAre("in.laz"));
}

TEST_F(PointsProgram, TilesWithoutPointsAreNotPlaced) {
    writeRow("in.laz", 0, 40);
    const auto tiles = run(
        {"las", "in.laz", "--tiles", "--fragment-points", "10", "--box", "0.10,-1,0.25,1", "-o", "t.las"});
    EXPECT_EQ(tiles.status, 0) << tiles.err;
    EXPECT_THAT(names(), ElementsAre("in.laz", "t_000001.las", "t_000002.las"));
}

TEST_F(PointsProgram, MissingFieldToChooseByIsAnErrorThatNamesFileAndField) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "dunes").field("Positions", "n", randomPoints(10));
    write("in.h5", bundle);
    const auto result = run({"las", "in.h5", "--class", "2", "-o", "x.las"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, AllOf(HasSubstr("in.h5: grid \"dunes\" at time 0"), HasSubstr("Classification")));
}

TEST_F(PointsProgram, CellsBecomePointsWhereThatIsAskedForAndTheMessageSaysSoElsewhere) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "dem")
        .field("Positions", "",
               Anchor::makeStrong<Sheaf::HeldCreator>(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
                   Geom::PhysicalSpace::point{10, 20, 0}, Geom::PhysicalSpace::vector{1, 1, 1},
                   Sheaf::MultiIndex<3>{3, 1, 1})))
        .field("Height", "",
               Anchor::makeStrong<Sheaf::HeldCreator>(
                   Sheaf::makeArray(Sheaf::Extents{3, 1, 1}, std::vector<float>{5, 6, 7})))
        .field("CellType", "",
               Anchor::makeStrong<Sheaf::HeldCreator>(
                   Sheaf::makeArray(Sheaf::Extents{3, 1, 1}, std::vector<unsigned char>{1, 0, 1})));
    write("dem.h5", bundle);
    for (const std::string command : {"las", "pcd"}) {
        const auto refused = run({command, "dem.h5", "-o", "x." + command});
        EXPECT_EQ(refused.status, 1);
        EXPECT_THAT(refused.err, HasSubstr("--cells-as-points makes points of its cells"));
    }
    const auto made = run({"las", "dem.h5", "--cells-as-points", "-o", "x.las"});
    EXPECT_EQ(made.status, 0) << made.err;
    const WrittenLas file = WrittenLas::read(place_ / "x.las");
    ASSERT_EQ(file.count(), 2U);
    EXPECT_NEAR(file.records()[1].z * file.scale(2) + file.offset(2), 7, 1e-3);
    const auto field = run({"las", "dem.h5", "--cells-as-points", "--z-band", "Depth", "-o", "y.las"});
    EXPECT_EQ(field.status, 1);
    EXPECT_THAT(field.err, AllOf(HasSubstr("dem.h5: grid \"dem\""), HasSubstr("Depth"), HasSubstr("Height")));
    EXPECT_EQ(run({"las", "dem.h5", "--z-band", "1", "-o", "y.las"}).status, 2);
}

TEST_F(PointsProgram, ABundleOfChosenPointsKeepsItsLattices) {
    ASSERT_EQ(run({"sample", "--points", "500", "-o", "tides.h5"}).status, 0);
    const auto result = run({"bundle", "tides.h5", "--class", "2", "-o", "ground.h5"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.err, HasSubstr("no classes or returns can be chosen; it stays"));
    const Json info = Json::parse(run({"info", "ground.h5", "--stats", "--json"}).out);
    std::set<std::string> grids;
    for (const Json& grid : info["slices"][0]["grids"]) {
        grids.insert(grid["name"]);
        const Json& classes = grid["statistics"]["classes"];
        EXPECT_TRUE(classes.empty() || (classes.size() == 1 && classes[0]["class"] == 2)) << classes;
    }
    EXPECT_GE(grids.size(), 2U);
}

TEST_F(PointsProgram, HeightsThatAreFloatsAreRoundedOnlyWhereTheyChangeByMoreThanTheirResolution) {
    const auto demOf = [](const std::vector<float>& heights) {
        const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
        const std::uint64_t count = heights.size();
        GridBuilder(*bundle, 0, "dem")
            .field("Positions", "",
                   Anchor::makeStrong<Sheaf::HeldCreator>(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
                       Geom::PhysicalSpace::point{10, 20, 0}, Geom::PhysicalSpace::vector{1, 1, 1},
                       Sheaf::MultiIndex<3>{count, 1, 1})))
            .field("Height", "",
                   Anchor::makeStrong<Sheaf::HeldCreator>(
                       Sheaf::makeArray(Sheaf::Extents{count, 1, 1}, heights)));
        return bundle;
    };
    // Whole centimetres, as floats tell them apart.
    write("dem.h5", demOf({410.56F, 399.99F, 1.23F, 520.51F}));
    for (const std::string command : {"las", "pcd", "ascii"}) {
        ProgramRunner::Arguments arguments{command, "dem.h5", "--cells-as-points", "-o", "x." + command};
        if (command == "pcd")
            arguments.emplace_back("--no-thinning");
        const auto result = run(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_THAT(result.err, Not(HasSubstr("rounded"))) << command;
    }
    // Finer than the steps of the LAS file.
    write("fine.h5", demOf({410.56003F, 410.5601F, 410.56017F, 410.56023F}));
    EXPECT_THAT(run({"las", "fine.h5", "--cells-as-points", "-o", "y.las"}).err,
                HasSubstr("more than the input's step of 3.1e-05 allows"));
}

TEST_F(PointsProgram, ThousandsOfInputsWithOneOddityGiveAScreenOfMessages) {
    constexpr std::size_t inputs = 1000;
    std::vector<std::string> files;
    for (std::size_t number = 0; number < inputs; ++number) {
        files.push_back("tile" + std::to_string(number) + ".las");
        // Thinned to one point, intensities all the same, a record that is not known, and no reference system.
        Support::LasFileBuilder file;
        file.format = 1;
        file.points.resize(2);
        file.vlrs.push_back({"somebody", 7, "something"});
        write(files.back(), file);
    }
    const auto linesOf = [](const std::string& text) {
        return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    };
    const std::vector<ProgramRunner::Arguments> commands{
        {"las", "--plain", "-o", "las/{grid}.laz"},
        {"las", "--merge", "-o", "all.laz"},
        {"las", "--last-wins", "-o", "last.laz"},
        {"pcd", "-o", "pcd/{grid}.pcd"},
        {"pcd", "--merge", "-o", "all.pcd"},
        {"ascii", "-o", "text/{grid}"},
        {"ascii", "--append", "-o", "appended"},
        {"bundle", "-o", "all.h5"},
        {"bundle", "--merge", "-o", "merged.h5"},
        {"view", "-o", "all.png"},
        {"las", "--rename", "X=UserData", "-o", "renamed/{grid}.las"},
    };
    constexpr std::size_t screen = 24;
    for (ProgramRunner::Arguments arguments : commands) {
        arguments.insert(arguments.end(), files.begin(), files.end());
        const auto result = run(arguments);
        EXPECT_EQ(result.status, 0) << arguments[0] << result.err.substr(0, 2000);
        EXPECT_LE(linesOf(result.err), screen) << arguments[0] << result.err.substr(0, 2000);
    }
    ProgramRunner::Arguments info{"info"};
    info.insert(info.end(), files.begin(), files.end());
    const auto shown = run(info);
    EXPECT_EQ(shown.status, 0);
    EXPECT_LE(linesOf(shown.err), screen) << shown.err;
    // A line for each of 40 files, and what there is besides.
    EXPECT_LE(linesOf(shown.out), 46U) << shown.out;
}

TEST_F(PointsProgram, ThinningIsALossUnlessTheCellSizeWasGiven) {
    writeRow("in.las", 0, 100); // one metre
    const auto byDefault = run({"pcd", "in.las", "-o", "a.pcd"});
    EXPECT_EQ(byDefault.status, 0);
    EXPECT_THAT(byDefault.err, AllOf(HasSubstr("10 of 100 points are kept"), HasSubstr("--no-thinning")));
    EXPECT_THAT(run({"pcd", "in.las", "-o", "b.pcd", "--cell-size", "0.1"}).err, Not(HasSubstr("are kept")));
    EXPECT_EQ(read("a.pcd"), read("b.pcd"));
    EXPECT_EQ(run({"pcd", "in.las", "-o", "c.pcd", "--cell-size", "0"}).status, 2);
    EXPECT_EQ(run({"pcd", "in.las", "-o", "c.pcd", "--cell-size", "1", "--no-thinning"}).status, 2);
}

TEST_F(PointsProgram, EqualIntensitiesAreToldOf) {
    writeRow("in.las", 0, 5);
    EXPECT_THAT(run({"pcd", "in.las", "-o", "a.pcd"}).err, HasSubstr("intensities are all the same"));
    writeRow("varied.las", 0, 5,
             [](LasRecord& point, std::size_t i) { point.intensity = static_cast<std::uint16_t>(i); });
    EXPECT_THAT(run({"pcd", "varied.las", "-o", "b.pcd"}).err, Not(HasSubstr("all the same")));
}

TEST_F(PointsProgram, FieldsWithoutPositionsAreRefusedBeforeAnyWork) {
    writeRow("in.las", 0, 5);
    for (const std::string command : {"las", "pcd"}) {
        const auto result = run({command, "in.las", "--field", "Intensity", "-o", "x"});
        EXPECT_EQ(result.status, 2);
        EXPECT_THAT(result.err, HasSubstr("--field Positions"));
    }
    EXPECT_THAT(names(), ElementsAre("in.las"));
}

TEST_F(PointsProgram, FilterThatMatchesNothingIsALoss) {
    writeRow("in.las", 0, 5);
    const ProgramRunner::Arguments typed{"ascii",   "in.las",   "--field", "Positions",
                                         "--field", "Intensty", "-o",      "x"};
    const auto told = run(typed);
    EXPECT_EQ(told.status, 0);
    EXPECT_THAT(told.err, HasSubstr("no field matches --field 'Intensty' (case counts); there are: "));
    auto strict = typed;
    strict.insert(strict.end(), {"--overwrite", "--strict"});
    EXPECT_EQ(run(strict).status, 1);
    strict.insert(strict.end(), {"--accept", "filter,properties,fields"});
    const auto accepted = run(strict);
    EXPECT_EQ(accepted.status, 0) << accepted.err;
    EXPECT_THAT(accepted.err, Not(HasSubstr("Intensty")));
    const auto unknown = run({"ascii", "in.las", "--accept", "everything", "-o", "y"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_THAT(unknown.err, HasSubstr("thinning"));
}

TEST_F(PointsProgram, ManyLossesOfAKindAreSummedUp) {
    ProgramRunner::Arguments arguments{"pcd", "-o", "{grid}.pcd"};
    for (int i = 0; i < 12; ++i) {
        writeRow("in" + std::to_string(i) + ".las", 0, 100 + static_cast<std::size_t>(i));
        arguments.push_back("in" + std::to_string(i) + ".las");
    }
    const auto result = run(arguments);
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr("... and 10 more of kind thinning; --json lists all"));
}

TEST_F(PointsProgram, MistypedArgumentsAreToldWithARemedy) {
    const auto err = [&](const ProgramRunner::Arguments& arguments) {
        const auto result = run(arguments);
        EXPECT_EQ(result.status, 2);
        return result.err;
    };
    EXPECT_THAT(err({"las", "a.las", "-o", "b.laz", "--lasversion", "1.2"}),
                HasSubstr("there is no option --lasversion; did you mean --las-version?"));
    EXPECT_THAT(err({"las", "a.las", "-o", "b.laz", "--las-version", "1.1"}),
                HasSubstr("--las-version takes 1.2, 1.3 or 1.4, not \"1.1\""));
    EXPECT_THAT(err({"las", "a.las", "-o", "b.laz", "--time", "6:0"}),
                HasSubstr("--time 6:0: 6 is greater than 0"));
    EXPECT_THAT(err({"las", "a.las", "-o", "b.laz", "-o", "c.laz"}), HasSubstr("--output is given twice"));
    EXPECT_THAT(err({"las", "a.las", "-o", "-"}), HasSubstr("standard output"));
    EXPECT_THAT(err({"las", "a.las", "-o", "x{grid.las"}), HasSubstr("has no \"}\""));
    EXPECT_THAT(err({"bundle", "a.las", "-o", "b.laz"}),
                HasSubstr("bundle does not write .laz files (las does)"));
    EXPECT_THAT(err({"las", "a.las", "-o", "b.laz", "--box", "1,1,0,5"}),
                HasSubstr("XMIN 1 is not below XMAX 0"));
    EXPECT_THAT(err({"las", "a.las", "-o", "b.laz", "--class", "256"}), HasSubstr("numbers from 0 to 255"));
    EXPECT_THAT(err({"las", "a.las", "-o", "b.laz", "--returns", "0"}), HasSubstr("first, last, only"));
}

TEST_F(PointsProgram, FolderAsInputIsAnErrorThatSaysWhatToName) {
    std::filesystem::create_directories(place_ / "k");
    const auto result = run({"las", "k/", "-o", "x.laz"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("k/ is a folder; name its files, for example k/*.laz"));
}

TEST_F(PointsProgram, CutOffFileIsToldAsSuch) {
    writeRow("in.laz", 0, 20000);
    const std::string whole = read("in.laz");
    Support::writeBytes(place_ / "cut.laz", whole.substr(0, whole.size() / 2));
    const auto result = run({"las", "cut.laz", "-o", "x.laz"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("the file is cut off: it should begin at byte"));
}

TEST_F(PointsProgram, TooLongNameOfAFieldIsAnErrorThatSaysSo) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "dunes")
        .field("Positions", "n", randomPoints(3))
        .field(std::string(256, 'x'), "n", std::vector<float>(3));
    write("in.h5", bundle);
    const auto result = run({"ascii", "in.h5", "-o", "x"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("bytes, and in a path it may have 255"));
    EXPECT_THAT(names(), ElementsAre("in.h5"));
}

TEST_F(PointsProgram, HelpFitsEightyColumns) {
    for (const std::string command : {"las", "pcd", "ascii", "info", "check", "bundle", "view", "sample"}) {
        const auto help = run({command, "--help"});
        EXPECT_EQ(help.status, 0);
        std::istringstream lines(help.out);
        for (std::string line; std::getline(lines, line);)
            EXPECT_LE(line.size(), 80U) << command << ": " << line;
    }
    EXPECT_EQ(run({"-V"}).out, run({"--version"}).out);
}

} // namespace
} // namespace Tidewatch
