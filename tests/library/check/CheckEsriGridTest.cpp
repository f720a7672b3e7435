// SPDX-License-Identifier: Apache-2.0
#include "library/check/found.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// A grid of three columns and two rows; `from`, which has to be in it, becomes `to`.
std::string grid(const std::string& from = {}, const std::string& to = {}) {
    std::string text = "NCOLS 3\nNROWS 2\nXLLCENTER 10.000\nYLLCENTER 20.000\nCELLSIZE 0.500\n"
                       "NODATA_VALUE -9999.\n 1.500000  2.000000 -9999. \n 4.000000  5.500000  6.250000 \n";
    if (!from.empty())
        text.replace(text.find(from), from.size(), to);
    return text;
}

/// What is found, apart from the missing .prj file.
std::vector<std::string> check(const std::string& text) {
    std::vector<std::string> kinds = kindsOf(checkBytes(text, "a.grd"));
    std::erase(kinds, "note no-system");
    return kinds;
}

TEST(CheckEsriGrid, ASoundGridHasNoFindings) {
    EXPECT_THAT(check(grid()), IsEmpty());
    EXPECT_EQ(checkBytes(grid()).format(), "ESRI ASCII grid");
    EXPECT_THAT(check("ncols 1\nnrows 1\nxllcorner 0\nyllcorner 0\ndx 1\ndy 2\nnodata_value 0\n7"),
                IsEmpty());
}

TEST(CheckEsriGrid, AWrongHeaderIsAFault) {
    for (const auto& [from, to] : std::vector<std::pair<std::string, std::string>>{
             {"NCOLS 3\n", "NCOLS three\n"},
             {"NROWS 2\n", "NROWS 2\nNROWS 2\n"},
             {"XLLCENTER 10.000\n", ""},
             {"XLLCENTER 10.000\n", "XLLCENTER 10\nXLLCORNER 9\n"},
             {"YLLCENTER 20.000", "YLLCENTER inf"},
             {"CELLSIZE 0.500\n", ""},
             {"YLLCENTER 20.000", "YLLCENTER"}}) {
        const auto kinds = check(grid(from, to));
        ASSERT_FALSE(kinds.empty()) << to;
        EXPECT_EQ(kinds[0], "fault header") << to;
    }
    EXPECT_THAT(check("NCOLS 3\n"), ElementsAre("fault header", "note no-data"));
}

TEST(CheckEsriGrid, CellsHaveASizeAboveZero) {
    EXPECT_THAT(check(grid("0.500", "-1")), ElementsAre("fault cell-size"));
    EXPECT_THAT(check(grid("0.500", "0")), ElementsAre("fault cell-size"));
    EXPECT_THAT(check(grid("0.500", "0.000")), ElementsAre("warning cell-size"));
}

TEST(CheckEsriGrid, RowsAndColumnsAreThoseThatAreStated) {
    EXPECT_THAT(check(grid(" 1.500000", "")), ElementsAre("fault cells"));
    EXPECT_THAT(check(grid("NROWS 2", "NROWS 3")), ElementsAre("fault cells"));
    EXPECT_THAT(check(grid("NCOLS 3", "NCOLS 4")), ElementsAre("fault cells"));
    EXPECT_EQ(findingOf(checkBytes(grid(" 1.500000", "")), "cells").place, "line 7");
    EXPECT_THAT(check(grid("2.000000 -9999. \n", "2.000000\n -9999. ")), ElementsAre("note cells"));
    EXPECT_THAT(check(grid("NCOLS 3\nNROWS 2", "NCOLS 0\nNROWS 2")),
                ElementsAre("fault cells", "note cells"));
}

TEST(CheckEsriGrid, ValuesHaveToBeNumbers) {
    EXPECT_THAT(check(grid("5.500000", "5,5")), ElementsAre("fault values"));
    EXPECT_THAT(check(grid("5.500000", "nan")), ElementsAre("note not-finite"));
}

TEST(CheckEsriGrid, TheNumberForNoDataIsANumber) {
    EXPECT_THAT(check(grid("-9999.", "none")), ElementsAre("fault no-data"));
    EXPECT_THAT(check(grid("NODATA_VALUE -9999.\n", "")), ElementsAre("note no-data"));
    EXPECT_THAT(check("NCOLS 1\nNROWS 1\nXLLCENTER 0\nYLLCENTER 0\nCELLSIZE 1\nNODATA_VALUE -1\n-1.0\n"),
                ElementsAre("note no-data"));
}

TEST(CheckEsriGrid, GridsOneBehindTheOtherAreNoted) {
    EXPECT_THAT(check(grid() + grid()), ElementsAre("note several-grids"));
    EXPECT_THAT(check(grid() + grid("NROWS 2", "NROWS 1")), ElementsAre("fault cells", "note several-grids"));
}

TEST(CheckEsriGrid, BytesAsCharactersAreAHabitOfTheExporter) {
    const std::string head = grid().substr(0, grid().find(" 1.5"));
    const std::string cells = std::string(" \n  \0  x \n", 10) + "-9999.     - \n";
    const CheckReport report = checkBytes(head + cells, "a.grd");
    EXPECT_EQ(findingOf(report, "characters").severity, CheckFinding::Severity::Warning);
    EXPECT_THAT(findingOf(report, "characters").message, HasSubstr("--precision 0"));
    EXPECT_FALSE(report.hasFaults());
    EXPECT_FALSE(checkBytes(head + cells + head + cells, "a.grd").hasFaults());
    EXPECT_TRUE(checkBytes(head + cells + "x", "a.grd").hasFaults());
    EXPECT_TRUE(checkBytes(head + cells.substr(0, cells.size() - 2), "a.grd").hasFaults());
}

TEST(CheckEsriGrid, ThePrjFileBesideItIsRead) {
    const Support::TemporaryFolder folder;
    Support::writeBytes(folder / "a.grd", grid());
    EXPECT_THAT(kindsOf(checkFile(folder / "a.grd")), ElementsAre("note no-system"));
    Support::writeBytes(folder / "a.prj", "PROJCS[\"nothing\"");
    EXPECT_THAT(kindsOf(checkFile(folder / "a.grd")), ElementsAre("warning unreadable-system"));
}

} // namespace
} // namespace Tidewatch
