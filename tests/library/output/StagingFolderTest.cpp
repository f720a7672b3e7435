// SPDX-License-Identifier: Apache-2.0
#include "library/output/StagingFolder.hpp"

#include "anchor/Error.hpp"
#include "support/TemporaryFolder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

namespace fs = std::filesystem;

const auto itself = [](const fs::path& relative) { return "out" / relative; };

std::string messageOf(const StagingFolder& folder, const std::vector<ConvLib::WrittenFile>& record) {
    try {
        (void)folder.verify(record, itself);
    } catch (const Anchor::FileError& error) {
        return error.what();
    }
    return {};
}

TEST(StagingFolder, LiesInThePlaceUnderAUniqueNameWithoutADot) {
    const Support::TemporaryFolder place;
    const StagingFolder one(place.path());
    const StagingFolder two(place.path());
    EXPECT_EQ(one.path().parent_path(), place.path());
    EXPECT_TRUE(fs::is_directory(one.path()));
    EXPECT_NE(one.path(), two.path());
    EXPECT_EQ(one.path().filename().string().find('.'), std::string::npos);
}

TEST(StagingFolder, IsRemovedWithItsContentAtTheEnd) {
    const Support::TemporaryFolder place;
    {
        const StagingFolder folder(place.path());
        fs::create_directory(folder.path() / "inner");
        Support::writeBytes(folder.path() / "inner" / "file", "x");
    }
    EXPECT_TRUE(fs::is_empty(place.path()));
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
    const StagingFolder folder(place.path());
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
    const StagingFolder folder(place.path());
    Support::writeBytes(folder.path() / "a", "12");
    const std::string path = folder.path() / "a";
    EXPECT_EQ(messageOf(folder, {{path, 7, 1, false}, {path, 2, 1, false}}), "");
    EXPECT_NE(messageOf(folder, {{path, 2, 1, false}, {path, 7, 1, false}}), "");
}

TEST(StagingFolderVerify, AFailedStreamIsAnErrorThatNamesTheOutput) {
    const Support::TemporaryFolder place;
    const StagingFolder folder(place.path());
    Support::writeBytes(folder.path() / "a", "12");
    EXPECT_EQ(messageOf(folder, {{folder.path() / "a", 2, 1, true}}), "out/a: writing failed");
}

TEST(StagingFolderVerify, AFailureOfAnEarlierTimeCountsToo) {
    const Support::TemporaryFolder place;
    const StagingFolder folder(place.path());
    Support::writeBytes(folder.path() / "a", "12");
    const std::string path = folder.path() / "a";
    EXPECT_NE(messageOf(folder, {{path, 2, 1, true}, {path, 2, 1, false}}), "");
}

TEST(StagingFolderVerify, AMissingFileIsAnError) {
    const Support::TemporaryFolder place;
    const StagingFolder folder(place.path());
    EXPECT_THAT(messageOf(folder, {{folder.path() / "a", 2, 1, false}}),
                ::testing::StartsWith("out/a: the written"));
}

TEST(StagingFolderVerify, ASizeThatDiffersIsAnErrorWithBoth) {
    const Support::TemporaryFolder place;
    const StagingFolder folder(place.path());
    Support::writeBytes(folder.path() / "a", "12");
    EXPECT_EQ(messageOf(folder, {{folder.path() / "a", 3, 1, false}}),
              "out/a: 3 bytes were written, but the file has 2");
}

TEST(StagingFolderVerify, AFileWithoutARecordIsAnError) {
    const Support::TemporaryFolder place;
    const StagingFolder folder(place.path());
    Support::writeBytes(folder.path() / "b", "12");
    EXPECT_THAT(messageOf(folder, {}), ::testing::StartsWith("out/b: "));
}

TEST(StagingFolderVerify, ARecordOfAFileElsewhereIsAnError) {
    const Support::TemporaryFolder place;
    Support::writeBytes(place.path() / "a", "12");
    const StagingFolder folder(place.path());
    EXPECT_THAT(messageOf(folder, {{place.path() / "a", 2, 1, false}}), ::testing::HasSubstr("outside"));
}

} // namespace
} // namespace Tidewatch
