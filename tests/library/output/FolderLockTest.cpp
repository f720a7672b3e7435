// SPDX-License-Identifier: Apache-2.0
#include "library/output/FolderLock.hpp"

#include "anchor/Error.hpp"
#include "library/output/Placement.hpp"
#include "library/output/StagingFolder.hpp"
#include "support/TemporaryFolder.hpp"

#include <algorithm>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

namespace Tidewatch {
namespace {

namespace fs = std::filesystem;

TEST(FolderLock, TheSecondSaysThatItWaitsAndGoesOnWhenTheFirstIsGone) {
    const Support::TemporaryFolder folder;
    std::optional<FolderLock> first;
    first.emplace(folder.path(), nullptr, nullptr);
    std::vector<std::string> said;
    int checks = 0;
    const FolderLock second(
        folder.path(), [&](const std::string& text) { said.push_back(text); },
        [&] {
            // The 51st time, a second has passed.
            if (++checks == 60)
                first.reset();
        });
    EXPECT_THAT(said, ::testing::ElementsAre("waiting for another run that adds to files in " +
                                             folder.path().string()));
    EXPECT_EQ(checks, 60);
}

TEST(FolderLock, AShortWaitIsNotWorthSaying) {
    const Support::TemporaryFolder folder;
    std::optional<FolderLock> first;
    first.emplace(folder.path(), nullptr, nullptr);
    int checks = 0;
    const FolderLock second(
        folder.path(), [&](const std::string& text) { ADD_FAILURE() << text; },
        [&] {
            if (++checks == 3)
                first.reset();
        });
    EXPECT_EQ(checks, 3);
}

TEST(FolderLock, WaitingCanBeGivenUp) {
    struct GivenUp {};
    const Support::TemporaryFolder folder;
    const FolderLock first(folder.path(), nullptr, nullptr);
    EXPECT_THROW(FolderLock(folder.path(), nullptr, [] { throw GivenUp(); }), GivenUp);
}

TEST(FolderLock, AFolderThatIsNotThereIsAnError) {
    const Support::TemporaryFolder folder;
    EXPECT_THROW(FolderLock(folder.path() / "a", nullptr, nullptr), Anchor::FileError);
}

TEST(FolderLock, NothingIsLostWhenSeveralProcessesAddToOneFile) {
    const Support::TemporaryFolder folder;
    constexpr int processes = 4;
    constexpr int rounds = 25;
    std::vector<pid_t> children;
    for (int process = 0; process < processes; ++process) {
        const pid_t child = ::fork();
        if (child != 0) {
            children.push_back(child);
            continue;
        }
        int status = 0;
        try {
            for (int round = 0; round < rounds; ++round) {
                StagingFolder staging(folder.path());
                const StagingFolder::Run run = staging.beginRun();
                Support::writeBytes(run.path() / "a", std::to_string(process) + "\n");
                Placement placement(false, {});
                placement.add(run.name() / "a", folder.path() / "a", Placement::Mode::Append);
                const FolderLock lock(folder.path(), nullptr, nullptr);
                placement.commit();
            }
        } catch (...) {
            status = 1;
        }
        ::_exit(status);
    }
    for (const pid_t child : children) {
        int status = 1;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    const std::string all = Support::readBytes(folder.path() / "a");
    for (int process = 0; process < processes; ++process)
        EXPECT_EQ(std::count(all.begin(), all.end(), static_cast<char>('0' + process)), rounds) << process;
    EXPECT_EQ(all.size(), 2U * processes * rounds);
}

} // namespace
} // namespace Tidewatch
