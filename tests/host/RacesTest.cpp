// SPDX-License-Identifier: Apache-2.0
//
// Four processes of the program that write to one place at the same time.
#include "host/ProgramFixture.hpp"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

constexpr int processes = 4;
constexpr int rounds = 8;

class Races : public ProgramFixture {
protected:
    void SetUp() override {
        // Of one name, since grids are named after files and only those of one name go to one file.
        for (int number = 0; number < processes; ++number) {
            std::filesystem::create_directory(place_.path() / std::to_string(number));
            Support::LasFileBuilder file;
            file.points.resize(3000);
            for (auto& point : file.points)
                point.userData = static_cast<std::uint8_t>(number);
            write(inputOf(number), file);
        }
    }

    static std::string inputOf(int number) { return std::to_string(number) + "/tile.las"; }

    /// Runs the program four times at once.
    std::vector<ProgramResult> race(const std::function<ProgramRunner::Arguments(int)>& argumentsOf) const {
        std::vector<std::unique_ptr<ProgramRunner>> runners;
        for (int number = 0; number < processes; ++number)
            runners.push_back(std::make_unique<ProgramRunner>(place_.path(), argumentsOf(number)));
        std::vector<ProgramResult> results;
        for (const auto& runner : runners)
            results.push_back(runner->finish());
        return results;
    }

    /// Names beside the inputs that are left of unfinished work.
    [[nodiscard]] std::vector<std::string> leftovers() const {
        std::vector<std::string> found = names();
        found.erase(std::remove_if(
                        found.begin(), found.end(),
                        [](const std::string& name) { return name.find("tidewatch-") == std::string::npos; }),
                    found.end());
        return found;
    }
};

TEST_F(Races, NothingIsLostWhereFourProcessesAppendToOneFile) {
    for (int round = 1; round <= rounds; ++round) {
        const auto results = race([](int number) {
            return ProgramRunner::Arguments{"ascii",    inputOf(number), "-o",      "out",
                                            "--append", "--field",       "UserData"};
        });
        for (const ProgramResult& result : results)
            ASSERT_EQ(result.status, 0) << result.err;
        const std::string text = read("out/UserData.asc");
        for (int number = 0; number < processes; ++number)
            ASSERT_EQ(std::count(text.begin(), text.end(), static_cast<char>('0' + number)), 3000 * round)
                << number;
        // Each run's lines stay together.
        std::size_t changes = 1;
        for (std::size_t line = 1; line < text.size() / 3; ++line)
            changes += text[3 * line + 1] != text[3 * line - 2] ? 1U : 0U;
        EXPECT_LE(changes, static_cast<std::size_t>(processes * round));
    }
    EXPECT_THAT(leftovers(), ::testing::IsEmpty());
}

TEST_F(Races, OneOfFourProcessesCreatesAFile) {
    ASSERT_EQ(run({"las", inputOf(0), "-o", "one.laz"}).status, 0);
    const std::size_t size = read("one.laz").size();
    for (int round = 0; round < rounds; ++round) {
        const std::string name = "new" + std::to_string(round) + ".laz";
        const auto results = race([&](int number) {
            return ProgramRunner::Arguments{"las", inputOf(number), "-o", name};
        });
        int done = 0;
        for (const ProgramResult& result : results) {
            done += result.status == 0 ? 1 : 0;
            if (result.status != 0) {
                EXPECT_THAT(result.err, ::testing::HasSubstr(name));
            }
        }
        EXPECT_EQ(done, 1);
        EXPECT_NEAR(static_cast<double>(read(name).size()), static_cast<double>(size), 64);
        EXPECT_EQ(run({"check", name}).status, 0);
    }
    EXPECT_THAT(leftovers(), ::testing::IsEmpty());
}

TEST_F(Races, OverwritingLeavesOneOfFourWholeFiles) {
    std::vector<std::string> whole;
    for (int number = 0; number < processes; ++number) {
        ASSERT_EQ(run({"las", inputOf(number), "-o", "whole.las", "--overwrite"}).status, 0);
        whole.push_back(read("whole.las"));
    }
    for (int round = 0; round < rounds; ++round) {
        const auto results = race([](int number) {
            return ProgramRunner::Arguments{"las", inputOf(number), "-o", "same.las", "--overwrite"};
        });
        for (const ProgramResult& result : results)
            EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_THAT(whole, ::testing::Contains(read("same.las")));
    }
    EXPECT_THAT(leftovers(), ::testing::IsEmpty());
}

} // namespace
} // namespace Tidewatch
