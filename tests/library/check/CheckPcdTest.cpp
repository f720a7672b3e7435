// SPDX-License-Identifier: Apache-2.0
#include "library/check/found.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// A file of two points; `from`, which has to be in it, becomes `to`.
std::string pcd(const std::string& from = {}, const std::string& to = {}) {
    std::string text = "# .PCD v.7 - Point Cloud Data file format\n"
                       "VERSION .7\n"
                       "FIELDS x y z label\n"
                       "SIZE 4 4 4 1\n"
                       "TYPE F F F U\n"
                       "COUNT 1 1 1 1\n"
                       "WIDTH 2\n"
                       "HEIGHT 1\n"
                       "VIEWPOINT 0 0 0 1 0 0 0\n"
                       "POINTS 2\n"
                       "DATA ascii\n"
                       "1 2 3 4\n"
                       "5 6.5 -7e3 255\n";
    if (!from.empty())
        text.replace(text.find(from), from.size(), to);
    return text;
}

CheckReport check(const std::string& from, const std::string& to) {
    return checkBytes(pcd(from, to));
}

TEST(CheckPcd, ASoundFileHasNoFindings) {
    const CheckReport report = checkBytes(pcd());
    EXPECT_THAT(kindsOf(report), IsEmpty());
    EXPECT_EQ(report.format(), "PCD, ascii");
    EXPECT_THAT(kindsOf(check("# .PCD v.7", "# anything\n#")), IsEmpty());
    EXPECT_THAT(kindsOf(check("255\n", "255")), IsEmpty());
    EXPECT_THAT(kindsOf(check("COUNT 1 1 1 1\n", "")), IsEmpty());
}

TEST(CheckPcd, AWrongHeaderIsAFault) {
    const std::pair<const char*, const char*> changes[] = {{"VERSION .7\n", "VERSION 9\n"},
                                                           {"FIELDS x y z label\n", ""},
                                                           {"SIZE 4 4 4 1", "SIZE 4 4 4"},
                                                           {"SIZE 4 4 4 1", "SIZE 4 4 4 3"},
                                                           {"TYPE F F F U", "TYPE F F F X"},
                                                           {"COUNT 1 1 1 1", "COUNT 1 1 1 0"},
                                                           {"WIDTH 2\nHEIGHT 1\n", "HEIGHT 1\nWIDTH 2\n"},
                                                           {"WIDTH 2\n", "WIDTH 2\nWIDTH 2\n"},
                                                           {"WIDTH 2\n", "WIDTH two\n"},
                                                           {"HEIGHT 1\n", "HEIGHT\n"},
                                                           {"VIEWPOINT 0 0 0 1 0 0 0", "VIEWPOINT 0 0 0"},
                                                           {"POINTS 2\n", "POINTS 2\nCOLOUR red\n"},
                                                           {"DATA ascii\n", "DATA morse\n"}};
    for (const auto& [from, to] : changes) {
        const CheckReport report = check(from, to);
        ASSERT_TRUE(report.hasFaults()) << to;
        EXPECT_EQ(report.findings()[0].kind, "header") << to;
    }
}

TEST(CheckPcd, AHeaderWithSeveralFaultsIsReadNoFurther) {
    EXPECT_THAT(kindsOf(checkBytes("# .PCD v.7\nNONSENSE 1\nVERSION .7\n")), ElementsAre("fault header"));
    EXPECT_EQ(checkBytes("# .PCD v.7\nNONSENSE 1\nVERSION .7\n").findings()[0].count, 8U);
}

TEST(CheckPcd, CountsOfPointsHaveToAgree) {
    EXPECT_THAT(kindsOf(check("WIDTH 2", "WIDTH 3")), ElementsAre("fault point-count"));
    EXPECT_THAT(kindsOf(check("1 2 3 4\n", "")), ElementsAre("fault point-count"));
    EXPECT_THAT(kindsOf(check("1 2 3 4\n", "1 2 3 4\n1 2 3 4\n")), ElementsAre("fault point-count"));
}

TEST(CheckPcd, FewerLinesThanStatedAreAHabitOfTheExporter) {
    std::string text = pcd("1 2 3 4\n", "");
    text.replace(0, 0, "# .PCD v.7 - Point Cloud Data file format\n# exported by Tidewatch\n");
    const CheckReport report = checkBytes(text);
    EXPECT_THAT(kindsOf(report), ElementsAre("warning point-count"));
    EXPECT_THAT(report.findings()[0].message, HasSubstr("--exact-counts"));
    EXPECT_THAT(kindsOf(checkBytes(text + "1 2 3 4\n1 2 3 4\n")), ElementsAre("fault point-count"));
}

TEST(CheckPcd, ValuesHaveToBeNumbersOfTheirTypes) {
    EXPECT_THAT(kindsOf(check("1 2 3 4\n", "1 2 3\n")), ElementsAre("fault values"));
    EXPECT_THAT(kindsOf(check("1 2 3 4\n", "1 2 3 4 5\n")), ElementsAre("fault values"));
    EXPECT_THAT(kindsOf(check("1 2 3 4\n", "1 2 three 4\n")), ElementsAre("fault values"));
    EXPECT_THAT(kindsOf(check("255", "256")), ElementsAre("fault values"));
    EXPECT_THAT(kindsOf(check("255", "-1")), ElementsAre("fault values"));
    EXPECT_THAT(kindsOf(check("255", "2.5")), ElementsAre("fault values"));
    EXPECT_EQ(check("255", "-1").findings()[0].place, "line 13");
    std::string text = pcd("TYPE F F F U", "TYPE F F F I");
    EXPECT_THAT(kindsOf(checkBytes(text)), ElementsAre("fault values"));
    text.replace(text.find("255"), 3, "-128");
    EXPECT_THAT(kindsOf(checkBytes(text)), IsEmpty());
}

TEST(CheckPcd, WhatIsNoFiniteNumberIsNoted) {
    EXPECT_THAT(kindsOf(check("1 2 3 4", "1 nan -inf 4")), ElementsAre("note not-finite"));
    EXPECT_EQ(check("1 2 3 4", "1 nan -inf 4").findings()[0].count, 2U);
}

TEST(CheckPcd, BinaryDataHasTheSizeThatTheHeaderStates) {
    const std::string text = pcd();
    const std::string head = text.substr(0, text.find("DATA")) + "DATA binary\n";
    EXPECT_THAT(kindsOf(checkBytes(head + std::string(26, '\n'))), IsEmpty());
    EXPECT_THAT(kindsOf(checkBytes(head + std::string(25, '\n'))), ElementsAre("fault points"));
    EXPECT_THAT(kindsOf(checkBytes(head + std::string(27, '\n'))), ElementsAre("warning unused-bytes"));
}

TEST(CheckPcd, CompressedDataHasTheSizesThatItStates) {
    const std::string text = pcd();
    const std::string head = text.substr(0, text.find("DATA")) + "DATA binary_compressed\n";
    const std::string sizes{"\x05\0\0\0\x1a\0\0\0", 8};
    EXPECT_THAT(kindsOf(checkBytes(head + sizes + "12345")), IsEmpty());
    EXPECT_THAT(kindsOf(checkBytes(head + sizes + "1234")), ElementsAre("fault points"));
    EXPECT_THAT(kindsOf(checkBytes(head + sizes.substr(0, 5))), ElementsAre("fault points"));
    EXPECT_THAT(kindsOf(checkBytes(head + std::string("\x05\0\0\0\x1b\0\0\0", 8) + "12345")),
                ElementsAre("fault point-count"));
}

} // namespace
} // namespace Tidewatch
