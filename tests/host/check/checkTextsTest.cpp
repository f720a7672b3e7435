// SPDX-License-Identifier: Apache-2.0
#include "host/check/checkTexts.hpp"

#include "library/report/Json.hpp"

#include <vector>

#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

std::vector<CheckReport> reports() {
    CheckReport bad("bad.laz");
    bad.setFormat("LAS 1.4, point format 6");
    bad.fault("box", "header", "too small", 1500);
    bad.warning("gps-time", "", "odd");
    return {bad, CheckReport("good.laz")};
}

TEST(CheckTexts, EachFindingIsALine) {
    EXPECT_EQ(findingsText(reports()[0], false), "bad.laz: fault box: header: too small (and 1 499 more)\n"
                                                 "bad.laz: warning gps-time: odd\n");
    EXPECT_EQ(findingsText(reports()[0], true), "bad.laz: fault box: header: too small (and 1 499 more)\n");
    EXPECT_EQ(findingsText(reports()[1], false), "");
}

TEST(CheckTexts, TheSummaryCountsFiles) {
    EXPECT_EQ(checkSummary(reports()), "2 files checked: 1 with faults, 1 with warnings, 0 with notes\n");
}

TEST(CheckTexts, JsonHoldsEverything) {
    EXPECT_EQ(Json::parse(checkJson(reports())), Json::parse(R"({"command": "check", "files": [
        {"file": "bad.laz", "format": "LAS 1.4, point format 6", "faults": 1, "warnings": 1, "notes": 0, "findings": [
            {"kind": "box", "severity": "fault", "place": "header", "message": "too small", "count": 1500},
            {"kind": "gps-time", "severity": "warning", "place": "", "message": "odd", "count": 1}]},
        {"file": "good.laz", "format": "", "faults": 0, "warnings": 0, "notes": 0, "findings": []}]})"));
}

} // namespace
} // namespace Tidewatch
