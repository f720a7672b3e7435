// SPDX-License-Identifier: Apache-2.0
//
// Inputs with the exact files that LASlib writes for them (release 221128).
#include "las/LasCase.hpp"
#include "support/ConsoleCapture.hpp"
#include "support/ThreadWorkers.hpp"
#include "support/WrittenLas.hpp"
#include "support/testName.hpp"

#include <algorithm>
#include <cstdlib>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Support::WrittenLas;
namespace fs = std::filesystem;

/// The cases in the project, and the large ones beside it where they are there.
std::vector<fs::path> caseFolders() {
    std::vector<fs::path> folders;
    const auto add = [&](const fs::path& parent, bool largeOnly) {
        std::error_code missing;
        for (const auto& entry : fs::directory_iterator(parent, missing)) {
            const std::string name = entry.path().filename().string();
            if (entry.is_directory() && (!largeOnly || name.ends_with("_big")))
                folders.push_back(entry.path());
        }
    };
    const char* const shared = std::getenv("TIDEWATCH_SHARED");
    add(TIDEWATCH_LAS_CASES, false);
    add(fs::path(shared != nullptr ? shared : TIDEWATCH_SHARED_DIR) / "cases" / "las", true);
    std::sort(folders.begin(), folders.end());
    return folders;
}

/// What LASzip says of itself in its record depends on its release and on who called it: the reserved number,
/// the description and the version.
std::string masked(std::string bytes) {
    const WrittenLas file(bytes);
    if (!file.isCompressed())
        return bytes;
    std::size_t place = file.at<std::uint16_t>(94);
    for (const WrittenLas::Vlr& vlr : file.vlrs()) {
        if (vlr.userId == "laszip encoded" && vlr.recordId == 22204) {
            for (const auto& [first, last] : {std::pair(0, 1), std::pair(22, 53), std::pair(58, 61)}) {
                for (int i = first; i <= last; ++i)
                    bytes[place + static_cast<std::size_t>(i)] = '?';
            }
        }
        place += 54 + vlr.payload.size();
    }
    return bytes;
}

std::map<std::string, std::string> filesIn(const fs::path& folder) {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::directory_iterator(folder)) {
        const std::string name = entry.path().filename().string();
        if (name != "REPORT.txt")
            files[name] = masked(Support::readBytes(entry.path()));
    }
    return files;
}

/// What a report states.
struct Report {
    explicit Report(const fs::path& path) {
        std::istringstream lines(Support::readBytes(path));
        for (std::string line; std::getline(lines, line);) {
            const std::string key = line.substr(0, line.find(' '));
            const std::string rest = line.substr(std::min(line.size(), key.size() + 1));
            if (key == "error")
                errors.push_back(rest);
            else if (key == "console")
                console.push_back(rest);
            else if (key == "fragments")
                fragments = std::stoi(rest);
            else if (key == "tile")
                tiles.push_back(rest);
        }
    }
    std::vector<std::string> errors;
    std::vector<std::string> console;
    std::vector<std::string> tiles;
    int fragments = -1;
};

/// The line of a report on a file, from the file itself.
std::string tileLine(const std::string& path, std::uint64_t points) {
    const WrittenLas file = WrittenLas::read(path);
    int reflectanceStart = -1;
    int amplitudeStart = -1;
    for (const WrittenLas::Vlr& vlr : file.vlrs()) {
        for (std::size_t i = 0; vlr.userId == "LASF_Spec" && i < vlr.payload.size() / 192; ++i) {
            const std::string name = vlr.payload.c_str() + 192 * i + 4;
            (name == "Amplitude" ? amplitudeStart : reflectanceStart) = static_cast<int>(2 * i);
        }
    }
    std::string line =
        fs::path(path).filename().string() + " version " + std::to_string(file.versionMinor()) + " format " +
        std::to_string(file.format()) + " reclen " + std::to_string(file.recordLength()) + " points " +
        std::to_string(points) + " bytes " + std::to_string(file.bytes.size()) + " reflstart " +
        std::to_string(reflectanceStart) + " ampstart " + std::to_string(amplitudeStart) + " counters";
    for (const std::uint64_t count : file.countsByReturn())
        line.append(" ").append(std::to_string(count));
    return line;
}

class LasCases : public ::testing::TestWithParam<fs::path> {};

TEST_P(LasCases, FilesAreThoseOfLaslib) {
    const Support::TemporaryFolder folder;
    Support::ConsoleCapture console;
    Support::LasCase one(GetParam(), folder.path().string());
    EXPECT_TRUE(one.exporter.Run());

    const auto expected = filesIn(GetParam() / "expected");
    const auto written = filesIn(folder.path());
    std::vector<std::string> expectedNames;
    for (const auto& [name, bytes] : expected)
        expectedNames.push_back(name);
    std::vector<std::string> writtenNames;
    for (const auto& [name, bytes] : written)
        writtenNames.push_back(name);
    ASSERT_EQ(writtenNames, expectedNames);
    for (const auto& [name, bytes] : expected)
        EXPECT_TRUE(written.at(name) == bytes) << name << " differs";

    const Report report(GetParam() / "expected" / "REPORT.txt");
    EXPECT_EQ(one.exporter.Errors, report.errors);
    EXPECT_EQ(console.messages, report.console);
    EXPECT_EQ(one.exporter.FragmentCount, report.fragments);
    ASSERT_EQ(one.exporter.writtenFiles().size(), report.tiles.size());
    for (std::size_t i = 0; i < report.tiles.size(); ++i) {
        const ConvLib::WrittenFile& file = one.exporter.writtenFiles()[i];
        EXPECT_EQ(tileLine(file.path, file.items), report.tiles[i]);
        EXPECT_EQ(file.bytes, fs::file_size(file.path));
        EXPECT_FALSE(file.failed);
    }
}

TEST_P(LasCases, AnyNumberOfWorkersWritesTheSameFiles) {
    const auto expected = filesIn(GetParam() / "expected");
    for (const unsigned count : {2U, 3U, 16U}) {
        const Support::TemporaryFolder folder;
        Support::ConsoleCapture console;
        Support::LasCase one(GetParam(), folder.path().string());
        one.exporter.setWorkers(Support::threadWorkers(count));
        EXPECT_TRUE(one.exporter.Run());
        EXPECT_TRUE(filesIn(folder.path()) == expected) << count << " workers";
    }
}

INSTANTIATE_TEST_SUITE_P(, LasCases, ::testing::ValuesIn(caseFolders()),
                         [](const auto& one) { return Support::testName(one.param.filename().string()); });

} // namespace
