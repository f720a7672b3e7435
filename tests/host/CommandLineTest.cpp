// SPDX-License-Identifier: Apache-2.0
#include "host/CommandLine.hpp"

#include "library/report/UsageError.hpp"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

Request parse(const std::vector<const char*>& arguments) {
    return parseCommandLine(arguments);
}

template <class T>
T parseAs(const std::vector<const char*>& arguments) {
    return std::get<T>(parse(arguments));
}

std::string usageError(const std::vector<const char*>& arguments) {
    try {
        (void)parse(arguments);
    } catch (const UsageError& error) {
        return error.what();
    }
    return "no error";
}

TEST(CommandLine, PcdWithoutOptionsHasTheDefaultsOfTheExporter) {
    const auto request = parseAs<PcdRequest>({"pcd", "a.laz", "-o", "a.pcd"});
    EXPECT_THAT(request.inputs.files, ElementsAre("a.laz"));
    EXPECT_EQ(request.options.output.text(), "a.pcd");
    EXPECT_EQ(request.options.refinementLevel, -1);
    EXPECT_EQ(request.options.precision, 8);
    EXPECT_EQ(request.options.cellSize, std::nullopt);
    EXPECT_TRUE(request.options.thinning);
    EXPECT_FALSE(request.options.exactCounts);
    EXPECT_FALSE(request.options.overwrite || request.options.losses.strict || request.printParameters);
    EXPECT_THAT(request.inputs.sliceTimes, IsEmpty());
    EXPECT_TRUE(request.inputs.points.isAll() && !request.inputs.merge && !request.inputs.cellsAsPoints);
    EXPECT_EQ(request.inputs.fragmentPoints, 1'000'000U);
    EXPECT_FALSE(request.inputs.memoryLimit);
    EXPECT_EQ(request.report.progress, ProgressMode::Automatic);
    EXPECT_FALSE(request.report.quiet || request.report.json);
}

TEST(CommandLine, PcdTakesAllItsOptions) {
    const auto request = parseAs<PcdRequest>({"pcd",
                                              "--ref-level",
                                              "2",
                                              "--precision",
                                              "-3",
                                              "a.laz",
                                              "--cell-size",
                                              "-0.5",
                                              "--exact-counts",
                                              "--time",
                                              "-5:-1",
                                              "--time=7",
                                              "--grid",
                                              "[ab]",
                                              "--grid",
                                              "b*",
                                              "--field",
                                              "Positions",
                                              "--slice-time",
                                              "-2.5",
                                              "--fragment-points",
                                              "10",
                                              "--memory-limit",
                                              "4G",
                                              "--overwrite",
                                              "--strict",
                                              "--print-parameters",
                                              "--progress",
                                              "always",
                                              "-q",
                                              "--json",
                                              "--output",
                                              "{grid}.pcd",
                                              "b.h5"});
    EXPECT_THAT(request.inputs.files, ElementsAre("a.laz", "b.h5"));
    EXPECT_EQ(request.options.refinementLevel, 2);
    EXPECT_EQ(request.options.precision, -3);
    EXPECT_EQ(request.options.cellSize, -0.5);
    EXPECT_TRUE(request.options.exactCounts);
    ASSERT_EQ(request.options.filters.times.size(), 2U);
    EXPECT_EQ(request.options.filters.times[0].first, -5);
    EXPECT_EQ(request.options.filters.times[0].last, -1);
    EXPECT_EQ(request.options.filters.times[1].first, 7);
    EXPECT_EQ(request.options.filters.times[1].last, 7);
    EXPECT_THAT(request.options.filters.grids, ElementsAre("[ab]", "b*"));
    EXPECT_THAT(request.options.filters.fields, ElementsAre("Positions"));
    EXPECT_THAT(request.inputs.sliceTimes, ElementsAre(-2.5));
    EXPECT_EQ(request.inputs.fragmentPoints, 10U);
    EXPECT_EQ(request.inputs.memoryLimit, std::uint64_t{4} << 30);
    EXPECT_TRUE(request.options.overwrite && request.options.losses.strict && request.printParameters);
    EXPECT_EQ(request.report.progress, ProgressMode::Always);
    EXPECT_TRUE(request.report.quiet && request.report.json);
    EXPECT_TRUE(request.options.output.isPerGrid());
}

TEST(CommandLine, LasWithoutOptionsHasTheDefaultsOfTheExporter) {
    const auto request = parseAs<LasRequest>({"las", "a.laz", "-o", "b.laz"});
    EXPECT_EQ(request.options.version, 4);
    EXPECT_EQ(request.options.day, 0);
    EXPECT_EQ(request.options.year, 0);
    EXPECT_EQ(request.options.pointSourceID, 0);
    EXPECT_FALSE(request.options.tiles || request.options.uncompressed || request.options.verify);
    EXPECT_EQ(request.options.renames.size(), 12U);
    EXPECT_EQ(request.options.renames.at("Intensity"), "Intensity");
}

TEST(CommandLine, LasTakesAllItsOptions) {
    const auto request =
        parseAs<LasRequest>({"las", "--las-version", "1.2", "--day", "-1", "--year", "99999", "--tiles",
                             "--uncompressed", "--point-source-id", "65535", "--rename", "Echo=UserData",
                             "--rename=a=b=Reflectance", "--verify", "-o", "b.laz", "a.laz"});
    EXPECT_THAT(request.inputs.files, ElementsAre("a.laz"));
    EXPECT_EQ(request.options.version, 2);
    EXPECT_EQ(request.options.day, -1);
    EXPECT_EQ(request.options.year, 99999);
    EXPECT_EQ(request.options.pointSourceID, 65535);
    EXPECT_TRUE(request.options.tiles && request.options.uncompressed && request.options.verify);
    EXPECT_EQ(request.options.renames.size(), 14U);
    EXPECT_EQ(request.options.renames.at("Echo"), "UserData");
    EXPECT_EQ(request.options.renames.at("a=b"), "Reflectance");
    EXPECT_EQ(request.options.renames.at("UserData"), "UserData");
}

TEST(CommandLine, ARenamingToNoAttributeNamesThemAll) {
    EXPECT_THAT(usageError({"las", "a", "-o", "b", "--rename", "Echo=Sound"}),
                ::testing::AllOf(HasSubstr("there is no attribute \"Sound\""), HasSubstr("Amplitude, "),
                                 HasSubstr("UserData")));
}

TEST(CommandLine, ARepeatableOptionTakesOneValueEachTime) {
    const auto request = parseAs<PcdRequest>({"pcd", "--grid", "a", "b", "--field", "c", "d", "-o", "o"});
    EXPECT_THAT(request.options.filters.grids, ElementsAre("a"));
    EXPECT_THAT(request.options.filters.fields, ElementsAre("c"));
    EXPECT_THAT(request.inputs.files, ElementsAre("b", "d"));
}

TEST(CommandLine, WhatFollowsTwoDashesIsAnInput) {
    const auto request = parseAs<InfoRequest>({"info", "--json", "--", "-a", "--grid="});
    EXPECT_TRUE(request.report.json);
    EXPECT_THAT(request.inputs.files, ElementsAre("-a", "--grid="));
}

TEST(CommandLine, AnInputMayBeNamedLikeACommand) {
    EXPECT_THAT(parseAs<InfoRequest>({"info", "pcd", "info"}).inputs.files, ElementsAre("pcd", "info"));
}

TEST(CommandLine, InfoBundleAndSampleTakeTheirOptions) {
    EXPECT_TRUE(parseAs<InfoRequest>({"info", "a", "--bounds"}).bounds);
    EXPECT_TRUE(parseAs<InfoRequest>({"info", "a", "--fields"}).fields);
    EXPECT_TRUE(parseAs<InfoRequest>({"info", "a", "--stats"}).statistics);
    EXPECT_THAT(parseAs<CheckRequest>({"check", "a", "b"}).inputs.files, ElementsAre("a", "b"));
    const auto bundle = parseAs<BundleRequest>({"bundle", "a", "b", "-o", "c.h5", "--strict", "--overwrite"});
    EXPECT_THAT(bundle.inputs.files, ElementsAre("a", "b"));
    EXPECT_EQ(bundle.output, "c.h5");
    EXPECT_TRUE(bundle.losses.strict && bundle.overwrite);
    const auto sample = parseAs<SampleRequest>({"sample", "--points", "12", "--seed", "7", "-o", "s.h5"});
    EXPECT_EQ(sample.survey.points, 12U);
    EXPECT_EQ(sample.survey.seed, 7U);
    EXPECT_EQ(sample.output, "s.h5");
}

TEST(CommandLine, HelpAndVersionAreTexts) {
    EXPECT_THAT(parseAs<TextRequest>({"--version"}).text, ::testing::StartsWith("tidewatch "));
    EXPECT_THAT(parseAs<TextRequest>({"--help"}).text, HasSubstr("bundle"));
    EXPECT_THAT(parseAs<TextRequest>({"-h"}).text, HasSubstr("Usage: tidewatch COMMAND"));
    for (const char* const command : {"las", "pcd", "info", "check", "bundle", "view", "sample"})
        EXPECT_THAT(parseAs<TextRequest>({command, "--help"}).text,
                    HasSubstr(std::string("Usage: tidewatch ") + command));
    EXPECT_THAT(parseAs<TextRequest>({"pcd", "-h"}).text, HasSubstr("significant digits (default 8)"));
}

TEST(CommandLine, ViewTakesAllItsOptions) {
    const auto plain = parseAs<ViewRequest>({"view", "a.laz"});
    EXPECT_FALSE(plain.output || plain.points || plain.size || plain.color || plain.overwrite);
    const auto request =
        parseAs<ViewRequest>({"view", "a.laz", "-o", "a.png", "--size", "640x480", "--color", "rgb", "--time",
                              "3", "--grid", "g*", "--field", "RGB", "--overwrite", "--points", "12"});
    EXPECT_EQ(request.output, "a.png");
    ASSERT_TRUE(request.size);
    EXPECT_EQ(request.size->width, 640U);
    EXPECT_EQ(request.size->height, 480U);
    EXPECT_EQ(request.color, ViewPictureOptions::Colors::RGB);
    EXPECT_EQ(request.points, 12U);
    EXPECT_THAT(request.filters.grids, ElementsAre("g*"));
    EXPECT_THAT(request.filters.fields, ElementsAre("RGB"));
    EXPECT_EQ(request.filters.times.size(), 1U);
    EXPECT_TRUE(request.overwrite);
    for (const char* const size : {"640", "640x", "x480", "199x480", "640x20001", "640X480", "-640x480"})
        EXPECT_THAT(usageError({"view", "a", "--size", size}), HasSubstr("--size takes WIDTHxHEIGHT"))
            << size;
}

TEST(CommandLine, AMistypedCommandGetsASuggestion) {
    EXPECT_EQ(usageError({"pdc", "a"}), "there is no command \"pdc\"; did you mean pcd?");
    EXPECT_EQ(usageError({"sampel"}), "there is no command \"sampel\"; did you mean sample?");
    EXPECT_EQ(
        usageError({"frobnicate"}),
        "there is no command \"frobnicate\"; there are las, pcd, ascii, info, check, bundle, view, sample");
}

TEST(CommandLine, MissingThingsAreNamed) {
    EXPECT_THAT(usageError({}), HasSubstr("a command is missing"));
    EXPECT_THAT(usageError({"pcd", "a"}), HasSubstr("--output is required"));
    EXPECT_THAT(usageError({"pcd", "-o", "a"}), HasSubstr("INPUT is required"));
    EXPECT_THAT(usageError({"info"}), HasSubstr("INPUT is required"));
    EXPECT_THAT(usageError({"pcd", "a", "-o"}), HasSubstr("--output"));
    EXPECT_THAT(usageError({"pcd", "a", "-o", "b", "--grid="}), HasSubstr("--grid= has no value"));
}

TEST(CommandLine, AnOptionGivenOnceIsRefusedTwice) {
    EXPECT_THAT(usageError({"pcd", "a", "-o", "b", "--precision", "1", "--precision", "2"}),
                HasSubstr("--precision"));
    EXPECT_THAT(usageError({"pcd", "a", "-o", "b", "-o", "c"}), HasSubstr("--output"));
}

TEST(CommandLine, UnknownOptionsAreRefused) {
    EXPECT_THAT(usageError({"pcd", "a", "-o", "b", "--frobnicate"}), HasSubstr("--frobnicate"));
    EXPECT_THAT(usageError({"info", "a", "--precision", "3"}), HasSubstr("--precision"));
    EXPECT_THAT(usageError({"bundle", "a", "-o", "b", "--grid", "g"}), HasSubstr("--grid"));
}

TEST(CommandLine, ValuesThatMakeNoSenseAreRefused) {
    const auto pcd = [](const char* option, const char* value) {
        return usageError({"pcd", "a", "-o", "b", option, value});
    };
    EXPECT_EQ(pcd("--precision", "8.5"), "--precision takes a whole number, not \"8.5\"");
    EXPECT_THAT(pcd("--ref-level", "99999999999"), HasSubstr("--ref-level takes"));
    EXPECT_THAT(pcd("--cell-size", "nan"), HasSubstr("--cell-size takes"));
    EXPECT_THAT(pcd("--cell-size", "inf"), HasSubstr("--cell-size takes"));
    EXPECT_THAT(pcd("--cell-size", "0,1"), HasSubstr("--cell-size takes"));
    EXPECT_EQ(pcd("--time", "3:1"), "--time 3:1: 3 is greater than 1");
    EXPECT_THAT(pcd("--slice-time", "inf"), HasSubstr("--slice-time takes"));
    EXPECT_THAT(pcd("--fragment-points", "0"), HasSubstr("--fragment-points takes"));
    EXPECT_THAT(pcd("--memory-limit", "lots"), HasSubstr("--memory-limit takes bytes"));
    EXPECT_THAT(pcd("--progress", "sometimes"), HasSubstr("--progress takes"));
    EXPECT_THAT(usageError({"sample", "-o", "b", "--points", "0"}), HasSubstr("--points takes"));
    EXPECT_THAT(usageError({"sample", "-o", "b", "--seed", "-1"}), HasSubstr("--seed takes"));
}

TEST(CommandLine, OutputsThatNameNoFileAreRefused) {
    for (const char* const output : {"", "out/", ".", "..", "out/..", "/"})
        EXPECT_NE(usageError({"pcd", "a", "-o", output}), "no error") << output;
    EXPECT_THAT(usageError({"bundle", "a", "-o", "out/"}), HasSubstr("is not a file name"));
    EXPECT_THAT(usageError({"pcd", "a", "-o", "{name}.pcd"}), HasSubstr("{name} is unknown"));
}

TEST(CommandLine, AsciiHasTheSettingsOfItsExporterAndTheirDefaults) {
    const auto plain = parseAs<AsciiRequest>({"ascii", "in.h5", "-o", "out/"});
    EXPECT_EQ(plain.options.settings.filterField, "CellType");
    EXPECT_EQ(plain.options.settings.refinementLevel, -1);
    EXPECT_EQ(plain.options.settings.precision, 0U);
    EXPECT_FALSE(plain.options.settings.append);
    EXPECT_FALSE(plain.options.settings.tileSuffix);
    EXPECT_TRUE(plain.options.cellTypes.empty());
    EXPECT_EQ(plain.options.output.text(), "out/");

    const auto set = parseAs<AsciiRequest>({"ascii", "in.h5", "-o", ".", "--ref-level", "-2", "--precision",
                                            "3", "--append", "--tile-suffix", "--filter-field", "Land",
                                            "--cell-types", "1:2,5"});
    EXPECT_EQ(set.options.settings.filterField, "Land");
    EXPECT_EQ(set.options.settings.refinementLevel, -2);
    EXPECT_EQ(set.options.settings.precision, 3U);
    EXPECT_TRUE(set.options.settings.append);
    EXPECT_TRUE(set.options.settings.tileSuffix);
    ASSERT_EQ(set.options.cellTypes.size(), 2U);
    EXPECT_EQ(set.options.cellTypes[0].high, 2);
    EXPECT_EQ(set.options.cellTypes[1].low, 5);
}

} // namespace
} // namespace Tidewatch
