// SPDX-License-Identifier: Apache-2.0
#include "library/output/OutputPattern.hpp"

#include "anchor/Error.hpp"
#include "library/report/UsageError.hpp"

#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

TEST(OutputPattern, WithoutPlaceholdersStandsForItself) {
    const OutputPattern pattern("./out/survey.2024/cloud.pcd");
    EXPECT_FALSE(pattern.isPerGrid());
    EXPECT_FALSE(pattern.isPerTime());
    EXPECT_EQ(pattern.fill("dunes", 1), "./out/survey.2024/cloud.pcd");
}

TEST(OutputPattern, PlaceholdersAreFilledWhereverTheyStand) {
    const OutputPattern pattern("{grid}/{time}/{grid}-{time}.pcd");
    EXPECT_TRUE(pattern.isPerGrid());
    EXPECT_TRUE(pattern.isPerTime());
    EXPECT_EQ(pattern.fill("dunes", 2.5), "dunes/2.5/dunes-2.5.pcd");
}

TEST(OutputPattern, TimesHaveTheirShortestForm) {
    const OutputPattern pattern("{time}");
    EXPECT_EQ(pattern.fill("g", 0), "0");
    EXPECT_EQ(pattern.fill("g", 0.1), "0.1");
    EXPECT_EQ(pattern.fill("g", -3), "-3");
    EXPECT_EQ(pattern.fill("g", 1e22), "1e+22");
    EXPECT_EQ(pattern.fill("g", 1.0 / 3), "0.3333333333333333");
}

TEST(OutputPattern, FixedFolderIsWhatAllOutputsShare) {
    EXPECT_EQ(OutputPattern("out/sub/a.pcd").fixedFolder(false), "out/sub");
    EXPECT_EQ(OutputPattern("a.pcd").fixedFolder(false), ".");
    EXPECT_EQ(OutputPattern("out/x{grid}/a.pcd").fixedFolder(false), "out");
    EXPECT_EQ(OutputPattern("{grid}/a.pcd").fixedFolder(false), ".");
    EXPECT_EQ(OutputPattern("/{grid}.pcd").fixedFolder(false), "/");
    EXPECT_EQ(OutputPattern("out/sub").fixedFolder(true), "out/sub");
    EXPECT_EQ(OutputPattern("out/{time}").fixedFolder(true), "out");
    EXPECT_EQ(OutputPattern("{time}").fixedFolder(true), ".");
}

TEST(OutputPattern, FilledNamesAreNotLookedAtAgain) {
    EXPECT_EQ(OutputPattern("{grid}.pcd").fill("{time}", 7), "{time}.pcd");
}

TEST(OutputPattern, BracesWithoutPartnerStandForThemselves) {
    EXPECT_EQ(OutputPattern("a}b{c").fill("g", 0), "a}b{c");
}

TEST(OutputPattern, UnknownPlaceholdersAreWrongUsage) {
    for (const char* const text : {"{}", "{Grid}", "{ grid }", "out/{name}.pcd", "{grid}{x}", "{{grid}}"})
        EXPECT_THROW(OutputPattern{text}, UsageError) << text;
}

TEST(OutputPattern, EmptyTextIsWrongUsage) {
    EXPECT_THROW(OutputPattern(""), UsageError);
}

TEST(OutputPattern, GridNamesThatAreNoPathComponentAreRefused) {
    const OutputPattern pattern("out/{grid}.pcd");
    for (const char* const name : {"", ".", "..", "a/b", "../a", "a\\b", "a\nb", "a\x7f"})
        EXPECT_THROW((void)pattern.fill(name, 0), Anchor::FormatError) << name;
    EXPECT_THROW((void)pattern.fill(std::string("a\0b", 3), 0), Anchor::FormatError);
    EXPECT_EQ(pattern.fill("...", 0), "out/....pcd");
    EXPECT_EQ(pattern.fill("d\xc3\xbcne", 0), "out/d\xc3\xbcne.pcd");
}

TEST(OutputPattern, GridNamesMatterOnlyWhereTheyAreAskedFor) {
    EXPECT_EQ(OutputPattern("{time}.pcd").fill("../a", 1), "1.pcd");
}

} // namespace
} // namespace Tidewatch
