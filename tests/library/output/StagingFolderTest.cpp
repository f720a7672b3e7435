// SPDX-License-Identifier: Apache-2.0
#include "library/output/StagingFolder.hpp"

#include "anchor/Error.hpp"
#include "support/ConsoleCapture.hpp"
#include "support/TemporaryFolder.hpp"

#include <cerrno>
#include <csignal>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

namespace Tidewatch {
namespace {

namespace fs = std::filesystem;

const auto itself = [](const fs::path& relative) { return "out" / relative; };

std::string messageOf(const StagingFolder::Run& folder, const std::vector<ConvLib::WrittenFile>& record) {
    try {
        (void)folder.verify(record, itself);
    } catch (const Anchor::FileError& error) {
        return error.what();
    }
    return {};
}

/// What is in a folder.
std::vector<std::string> namesIn(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    return names;
}

TEST(StagingFolder, LiesInThePlaceUnderAUniqueNameAndItsPathHasNoDot) {
    const Support::TemporaryFolder place;
    StagingFolder one(place.path());
    StagingFolder two(place.path());
    const StagingFolder::Run first = one.beginRun();
    const StagingFolder::Run second = one.beginRun();
    const StagingFolder::Run third = two.beginRun();
    EXPECT_EQ(first.name().parent_path().parent_path(), place.path());
    EXPECT_EQ(first.name().parent_path(), second.name().parent_path());
    EXPECT_NE(first.name(), second.name());
    EXPECT_NE(first.name().parent_path(), third.name().parent_path());
    EXPECT_EQ(first.path().string().find('.'), std::string::npos);
    Support::writeBytes(first.path() / "a", "1");
    EXPECT_EQ(Support::readBytes(first.name() / "a"), "1");
}

TEST(StagingFolder, IsRemovedWithItsContentAtTheEnd) {
    const Support::TemporaryFolder place;
    {
        StagingFolder folder(place.path());
        const StagingFolder::Run run = folder.beginRun();
        fs::create_directory(run.path() / "inner");
        Support::writeBytes(run.path() / "inner" / "file", "x");
        Support::writeBytes(place.path() / "outside", "x");
        fs::create_symlink(place.path() / "outside", run.path() / "link");
    }
    EXPECT_THAT(namesIn(place.path()), ::testing::ElementsAre("outside"));
}

TEST(StagingFolder, WhenItsFolderIsGoneWritingFailsInsteadOfGoingElsewhere) {
    const Support::TemporaryFolder place;
    StagingFolder folder(place.path());
    const StagingFolder::Run run = folder.beginRun();
    fs::remove_all(run.name());
    fs::create_directory(run.name());
    EXPECT_FALSE(std::ofstream(run.path() / "a").is_open());
    EXPECT_TRUE(fs::is_empty(run.name()));
}

TEST(StagingFolder, TheFolderOfARunThatWasKilledIsRemovedByTheNext) {
    const Support::TemporaryFolder place;
    const pid_t child = ::fork();
    if (child == 0) {
        StagingFolder folder(place.path());
        std::ofstream(folder.beginRun().path() / "a") << "unfinished";
        ::raise(SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    ASSERT_EQ(namesIn(place.path()).size(), 1U);
    { const StagingFolder next(place.path()); }
    EXPECT_THAT(namesIn(place.path()), ::testing::IsEmpty());
}

TEST(StagingFolder, TheFolderOfARunThatIsUnderWayStays) {
    const Support::TemporaryFolder place;
    StagingFolder folder(place.path());
    const StagingFolder::Run run = folder.beginRun();
    {
        const StagingFolder next(place.path());
        EXPECT_THAT(next.leftovers(), ::testing::IsEmpty());
    }
    EXPECT_TRUE(fs::exists(run.name()));
}

TEST(StagingFolder, TheFolderOfAnotherMachineIsNamedAndStays) {
    const Support::TemporaryFolder place;
    fs::create_directory(place.path() / "tidewatch-abcdef");
    Support::writeBytes(place.path() / "tidewatch-abcdef/note",
                        "unfinished files of tidewatch\nhost far\x1b\nboot 1\nprocess 7\n");
    {
        const StagingFolder folder(place.path());
        EXPECT_THAT(folder.leftovers(),
                    ::testing::ElementsAre(
                        (place.path() / "tidewatch-abcdef").string() +
                        ": unfinished files of process 7 on far\\x1b; remove them if it has ended"));
    }
    EXPECT_THAT(namesIn(place.path()), ::testing::ElementsAre("tidewatch-abcdef"));
}

TEST(StagingFolder, WhatMerelyHasSuchANameStays) {
    const Support::TemporaryFolder place;
    fs::create_directories(place.path() / "tidewatch-empty1");
    fs::create_directories(place.path() / "tidewatch-photos/note");
    fs::create_directories(place.path() / "tidewatch-letter");
    Support::writeBytes(place.path() / "tidewatch-letter/note", "unfinished letter\n");
    fs::create_directories(place.path() / "tidewatch-linked");
    Support::writeBytes(place.path() / "elsewhere",
                        "unfinished files of tidewatch\nhost a\nboot 1\nprocess 7\n");
    fs::create_symlink("../elsewhere", place.path() / "tidewatch-linked/note");
    {
        const StagingFolder folder(place.path());
        EXPECT_THAT(folder.leftovers(), ::testing::IsEmpty());
    }
    EXPECT_EQ(namesIn(place.path()).size(), 5U);
}

TEST(StagingFolder, WhatCannotBeRemovedIsNamed) {
    if (::geteuid() == 0)
        GTEST_SKIP() << "superuser: may remove everything";
    const Support::TemporaryFolder place;
    const Support::ConsoleCapture console;
    fs::path kept;
    {
        StagingFolder folder(place.path());
        const StagingFolder::Run run = folder.beginRun();
        kept = run.name().parent_path();
        Support::writeBytes(run.path() / "a", "1");
        fs::permissions(run.name(), fs::perms::owner_read | fs::perms::owner_exec);
    }
    EXPECT_THAT(console.messages, ::testing::ElementsAre(::testing::StartsWith(
                                      kept.string() + ": unfinished files cannot be removed: ")));
    fs::permissions(kept / "0", fs::perms::owner_all);
}

TEST(StagingFolder, MissingFoldersAreMadeAndEmptyOnesRemovedAgain) {
    const Support::TemporaryFolder place;
    {
        const StagingFolder folder(place.path() / "a" / "b");
        EXPECT_TRUE(fs::is_directory(place.path() / "a" / "b"));
    }
    EXPECT_TRUE(fs::is_empty(place.path()));
}

TEST(StagingFolder, MadeFoldersThatHoldSomethingStay) {
    const Support::TemporaryFolder place;
    {
        const StagingFolder folder(place.path() / "a" / "b");
        Support::writeBytes(place.path() / "a" / "file", "x");
    }
    EXPECT_TRUE(fs::exists(place.path() / "a" / "file"));
    EXPECT_FALSE(fs::exists(place.path() / "a" / "b"));
}

TEST(StagingFolder, FoldersThatWereThereStayEvenWhenEmpty) {
    const Support::TemporaryFolder place;
    fs::create_directory(place.path() / "a");
    { const StagingFolder folder(place.path() / "a" / "b"); }
    EXPECT_TRUE(fs::is_directory(place.path() / "a"));
    EXPECT_FALSE(fs::exists(place.path() / "a" / "b"));
}

TEST(StagingFolder, AFileOnTheWayIsAnErrorThatLeavesNothing) {
    const Support::TemporaryFolder place;
    Support::writeBytes(place.path() / "file", "x");
    EXPECT_THROW(StagingFolder(place.path() / "file" / "b"), Anchor::FileError);
    EXPECT_THROW(StagingFolder(place.path() / "file"), Anchor::FileError);
    EXPECT_EQ(Support::readBytes(place.path() / "file"), "x");
}

TEST(StagingFolder, AFailureOnTheWayRemovesTheFoldersThatWereMade) {
    const Support::TemporaryFolder place;
    EXPECT_THROW(StagingFolder(place.path() / "a" / std::string(300, 'x')), Anchor::FileError);
    EXPECT_TRUE(fs::is_empty(place.path()));
}

TEST(StagingFolderVerify, FilesAsRecordedAreListedInOrder) {
    const Support::TemporaryFolder place;
    StagingFolder staging(place.path());
    const StagingFolder::Run folder = staging.beginRun();
    fs::create_directory(folder.path() / "d");
    Support::writeBytes(folder.path() / "b", "12");
    Support::writeBytes(folder.path() / "a", "123");
    Support::writeBytes(folder.path() / "d" / "c", "");
    const auto files =
        folder.verify(std::vector<ConvLib::WrittenFile>{{folder.path() / "b", 2, 1, false},
                                                        {folder.path() / "a", 3, 1, false},
                                                        {folder.path() / "d" / "c", 0, 0, false}},
                      itself);
    EXPECT_THAT(files, ::testing::ElementsAre("a", "b", "d/c"));
}

TEST(StagingFolderVerify, OfAFileWrittenTwiceTheLastTimeCounts) {
    const Support::TemporaryFolder place;
    StagingFolder staging(place.path());
    const StagingFolder::Run folder = staging.beginRun();
    Support::writeBytes(folder.path() / "a", "12");
    const std::string path = folder.path() / "a";
    EXPECT_EQ(messageOf(folder, {{path, 7, 1, false}, {path, 2, 1, false}}), "");
    EXPECT_NE(messageOf(folder, {{path, 2, 1, false}, {path, 7, 1, false}}), "");
}

TEST(StagingFolderVerify, AFailedStreamIsAnErrorThatNamesTheOutput) {
    const Support::TemporaryFolder place;
    StagingFolder staging(place.path());
    const StagingFolder::Run folder = staging.beginRun();
    Support::writeBytes(folder.path() / "a", "12");
    EXPECT_EQ(messageOf(folder, {{folder.path() / "a", 2, 1, true, EDQUOT}}),
              "out/a: writing failed: Disk quota exceeded");
    EXPECT_EQ(messageOf(folder, {{folder.path() / "a", 2, 1, true}}),
              "out/a: writing failed: not everything arrived, and the system gave no reason");
}

TEST(StagingFolderVerify, AFailureOfAnEarlierTimeCountsToo) {
    const Support::TemporaryFolder place;
    StagingFolder staging(place.path());
    const StagingFolder::Run folder = staging.beginRun();
    Support::writeBytes(folder.path() / "a", "12");
    const std::string path = folder.path() / "a";
    EXPECT_NE(messageOf(folder, {{path, 2, 1, true}, {path, 2, 1, false}}), "");
}

TEST(StagingFolderVerify, AMissingFileIsAnError) {
    const Support::TemporaryFolder place;
    StagingFolder staging(place.path());
    const StagingFolder::Run folder = staging.beginRun();
    EXPECT_THAT(messageOf(folder, {{folder.path() / "a", 2, 1, false}}),
                ::testing::StartsWith("out/a: the written"));
}

TEST(StagingFolderVerify, ASizeThatDiffersIsAnErrorWithBoth) {
    const Support::TemporaryFolder place;
    StagingFolder staging(place.path());
    const StagingFolder::Run folder = staging.beginRun();
    Support::writeBytes(folder.path() / "a", "12");
    EXPECT_EQ(messageOf(folder, {{folder.path() / "a", 3, 1, false}}),
              "out/a: 3 bytes were written, but the file has 2");
}

TEST(StagingFolderVerify, AFileWithoutARecordIsAnError) {
    const Support::TemporaryFolder place;
    StagingFolder staging(place.path());
    const StagingFolder::Run folder = staging.beginRun();
    Support::writeBytes(folder.path() / "b", "12");
    EXPECT_THAT(messageOf(folder, {}), ::testing::StartsWith("out/b: "));
}

TEST(StagingFolderVerify, ARecordOfAFileElsewhereIsAnError) {
    const Support::TemporaryFolder place;
    Support::writeBytes(place.path() / "a", "12");
    StagingFolder staging(place.path());
    const StagingFolder::Run folder = staging.beginRun();
    EXPECT_THAT(messageOf(folder, {{place.path() / "a", 2, 1, false}}), ::testing::HasSubstr("outside"));
}

} // namespace
} // namespace Tidewatch
