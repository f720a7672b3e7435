// SPDX-License-Identifier: Apache-2.0
#include "host/report/summaryText.hpp"

#include "library/report/Json.hpp"

#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

TEST(Summary, TextHasALineForEachFile) {
    ExportReport summary;
    summary.files = {{"out/a.pcd", 1234567, 99, "points", "a", 0.0}, {"b.grd", 1, 0, "cells", {}, {}}};
    EXPECT_EQ(summaryText(summary), "out/a.pcd: 1234567 points, 99 bytes\nb.grd: 1 cells, 0 bytes\n");
}

TEST(Summary, TextOfManyFilesIsCutWhereThatIsAskedFor) {
    ExportReport summary;
    for (const char* const name : {"a", "b", "c", "d"})
        summary.files.push_back({name, 1, 2, "cells", {}, {}});
    EXPECT_EQ(summaryText(summary, 3), "a: 1 cells, 2 bytes\nb: 1 cells, 2 bytes\n... and 2 more files\n");
    EXPECT_EQ(summaryText(summary, 4), summaryText(summary));
}

TEST(Summary, TextSaysWhatAFileHeldBefore) {
    ExportReport summary;
    summary.files = {{"a.txt", 2, 8, "points", {}, {}, 100}};
    EXPECT_EQ(summaryText(summary), "a.txt: 2 points, 8 bytes, appended to 100 bytes\n");
}

TEST(Summary, JsonHoldsEverything) {
    ExportReport summary;
    summary.files = {{"out/a.pcd", 12, 99, "points", "a", 0.5}, {"b.txt", 3, 4, "points", {}, {}, 17}};
    summary.losses = {{"fields", "PCD does not carry the field RGB"}};
    summary.notes = {"a note"};
    summary.errors = {"an error"};
    const Json document = Json::parse(summaryJson("pcd", summary));
    EXPECT_EQ(document, Json::parse(R"({
        "command": "pcd",
        "files": [{"path": "out/a.pcd", "points": 12, "bytes": 99, "grid": "a", "time": 0.5},
                  {"path": "b.txt", "points": 3, "bytes": 4, "bytesBefore": 17}],
        "losses": [{"kind": "fields", "message": "PCD does not carry the field RGB"}],
        "notes": ["a note"],
        "errors": ["an error"]})"));
}

TEST(Summary, JsonOfNothingHasEmptyLists) {
    const Json document = Json::parse(summaryJson("las", ExportReport()));
    EXPECT_TRUE(document["files"].is_array() && document["files"].empty());
    EXPECT_TRUE(document["losses"].is_array() && document["losses"].empty());
    EXPECT_TRUE(document["notes"].is_array() && document["notes"].empty());
    EXPECT_TRUE(document["errors"].is_array() && document["errors"].empty());
}

TEST(Summary, JsonReplacesBytesOfPathsThatAreNotUtf8) {
    ExportReport summary;
    summary.files = {{"a\xff.pcd", 1, 1, "points", {}, {}}};
    EXPECT_EQ(Json::parse(summaryJson("pcd", summary))["files"][0]["path"], "a\xef\xbf\xbd.pcd");
}

} // namespace
} // namespace Tidewatch
