// SPDX-License-Identifier: Apache-2.0
#include "host/ProgramFixture.hpp"

#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace Tidewatch {
namespace {

using Json = nlohmann::json;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

class CheckProgramTest : public ProgramFixture {
protected:
    /// Checks all files in a folder. "warning KIND: FILE" and the like for every fault and warning, of the file named.
    [[nodiscard]] std::vector<std::string> findingsIn(const std::string& folder) const {
        ProgramRunner::Arguments arguments{"check", "--json"};
        for (const auto& entry : std::filesystem::recursive_directory_iterator(place_.path() / folder)) {
            if (entry.is_regular_file())
                arguments.push_back(entry.path());
        }
        const ProgramResult result = run(arguments);
        EXPECT_EQ(result.err, "");
        const Json document = Json::parse(result.out);
        EXPECT_EQ(document["files"].size(), arguments.size() - 2);
        EXPECT_FALSE(document["files"].empty());
        std::vector<std::string> findings;
        bool haveFaults = false;
        for (const Json& file : document["files"]) {
            for (const Json& finding : file["findings"]) {
                const auto severity = finding["severity"].get<std::string>();
                haveFaults = haveFaults || severity == "fault";
                if (severity != "note")
                    findings.push_back(severity + " " + finding["kind"].get<std::string>() + ": " +
                                       file["file"].get<std::string>() + ": " +
                                       finding["message"].get<std::string>());
            }
        }
        EXPECT_EQ(result.status, haveFaults ? 1 : 0);
        return findings;
    }

    void make(const ProgramRunner::Arguments& arguments) const {
        const ProgramResult result = run(arguments);
        ASSERT_EQ(result.status, 0) << result.err;
    }
};

TEST_F(CheckProgramTest, AFaultGivesStatusOneAndTheNextFileIsChecked) {
    write("good.las", variedLas(100));
    std::string bytes = variedLas(100).build();
    Support::patch(bytes, 179, -1e9);
    Support::writeBytes(place_ / "bad.las", bytes);
    const ProgramResult result = run({"check", "missing.las", "bad.las", "good.las"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.out,
                AllOf(HasSubstr("missing.las: fault file: "), HasSubstr("bad.las: fault box: header: x is"),
                      HasSubstr("good.las: fault counts-by-return: header: "),
                      HasSubstr("3 files checked: 3 with faults")));
    const ProgramResult quiet = run({"check", "-q", "bad.las"});
    EXPECT_EQ(quiet.status, 1);
    EXPECT_THAT(quiet.out,
                AllOf(HasSubstr(": fault "), Not(HasSubstr(": note ")), Not(HasSubstr("checked"))));
}

TEST_F(CheckProgramTest, WithoutFilesIsWrongUsage) {
    EXPECT_EQ(run({"check"}).status, 2);
}

TEST_F(CheckProgramTest, ADamagedBundleFileIsAFault) {
    make({"sample", "--points", "2000", "-o", "a.h5"});
    EXPECT_EQ(run({"check", "a.h5"}).status, 0);
    std::string bytes = read("a.h5");
    // Somewhere in the packed values, which are most of the file.
    for (std::size_t place = bytes.size() / 2; place < bytes.size() / 2 + 2000; ++place)
        bytes[place] = static_cast<char>(~bytes[place]);
    Support::writeBytes(place_ / "b.h5", bytes);
    const ProgramResult result = run({"check", "b.h5"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.out, HasSubstr("b.h5: fault "));
    Support::writeBytes(place_ / "c.h5", bytes.substr(0, 3000));
    EXPECT_THAT(run({"check", "c.h5"}).out, HasSubstr("c.h5: fault structure: "));
}

TEST_F(CheckProgramTest, WhatEveryCommandWritesOfTheSampleIsClean) {
    make({"sample", "--points", "6000", "-o", "out/tides.h5"});
    make({"las", "out/tides.h5", "-o", "out/{grid}-{time}.laz"});
    make({"las", "out/tides.h5", "-o", "out/{grid}-{time}-crs.las", "--crs", "EPSG:25832+5783", "--tiles"});
    make({"las", "out/tides.h5", "-o", "out/old-{time}.las", "--las-version", "1.2"});
    make({"las", "out/tides.h5", "-o", "out/middle-{time}.laz", "--las-version", "1.3", "--crs",
          "EPSG:25832"});
    make({"pcd", "out/tides.h5", "-o", "out/{grid}-{time}.pcd", "--exact-counts"});
    make({"pcd", "out/tides.h5", "-o", "out/fine-{time}.pcd", "--exact-counts", "--grid", "coast",
          "--cell-size", "0.001"});
    make({"ascii", "out/tides.h5", "-o", "out/text/{grid}-{time}"});
    make({"ascii", "out/tides.h5", "-o", "out/filtered/{grid}-{time}", "--cell-types", "1", "--crs",
          "EPSG:25832"});
    make({"ascii", "out/tides.h5", "-o", "out/joined", "--append"});
    make({"bundle", "out/tides.h5", "-o", "out/again.h5"});
    make({"view", "out/tides.h5", "-o", "out/tides.png"});
    EXPECT_THAT(findingsIn("out"), ElementsAre());
}

TEST_F(CheckProgramTest, HabitsAreWarningsThatNameTheOptionWhichAvoidsThem) {
    make({"sample", "--points", "6000", "-o", "tides.h5"});
    for (const std::string version : {"1.2", "1.3", "1.4"})
        make({"las", "tides.h5", "-o", "plain/{time}-" + version + ".laz", "--plain", "--las-version",
              version});
    std::vector<std::string> findings = findingsIn("plain");
    EXPECT_FALSE(findings.empty());
    for (const std::string& finding : findings)
        EXPECT_THAT(finding, AllOf(testing::StartsWith("warning "), HasSubstr("--plain")));
    std::string all;
    for (const std::string& finding : findings)
        all += finding + "\n";
    for (const char* const kind :
         {"scan-angle-unit", "shifted-attributes", "color-depth", "undescribed-bytes"})
        EXPECT_THAT(all, HasSubstr("warning " + std::string(kind)));

    make({"pcd", "tides.h5", "--last-wins", "-o", "pcd/a.pcd", "--cell-size", "20"});
    findings = findingsIn("pcd");
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_THAT(findings[0], AllOf(HasSubstr("warning point-count"), HasSubstr("--exact-counts")));

    make({"ascii", "tides.h5", "-o", "text/{grid}-{time}", "--precision", "2"});
    findings = findingsIn("text");
    EXPECT_FALSE(findings.empty());
    for (const std::string& finding : findings)
        EXPECT_THAT(finding, AllOf(HasSubstr("warning characters"), HasSubstr("CellType"),
                                   HasSubstr("--precision 0")));
}

TEST_F(CheckProgramTest, WhatEveryCommandWritesOfRealFilesIsClean) {
    for (const char* const name : {"1.2-with-color.las", "autzen_trim.laz", "autzen_trim_7.las",
                                   "epsg_4326.las", "extrabytes.las", "test1_4.las", "autzen-dsm.tif"}) {
        TIDEWATCH_NEED_SHARED(sample, name);
        const std::string folder = "out/" + std::string(name);
        const bool isRaster = std::string(name).ends_with(".tif");
#ifndef TIDEWATCH_GDAL
        if (isRaster)
            continue;
#endif
        if (isRaster) {
            make({"ascii", sample, "-o", folder + "/filtered", "--cell-types", "1"});
        } else {
            make({"las", sample, "-o", folder + "/a.laz"});
            make({"las", sample, "-o", folder + "/b.las", "--las-version", "1.2"});
            make({"las", sample, "-o", folder + "/c.laz", "--las-version", "1.3"});
            make({"pcd", sample, "-o", folder + "/a.pcd", "--exact-counts", "--cell-size", "1"});
        }
        make({"ascii", sample, "-o", folder + "/text"});
        make({"bundle", sample, "-o", folder + "/a.h5"});
        const ProgramResult result = run({"check", "-q", sample});
        EXPECT_EQ(result.status, 0) << result.out;
    }
    EXPECT_THAT(findingsIn("out"), ElementsAre());
}

} // namespace
} // namespace Tidewatch
