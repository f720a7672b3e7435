// SPDX-License-Identifier: Apache-2.0
#include "ascii/createDirectory.hpp"

#include "support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

namespace {

using ExportLib::createDirectory;
namespace fs = std::filesystem;

TEST(CreateDirectory, MissingFolderIsMadeWithItsParents) {
    const Support::TemporaryFolder folder;
    EXPECT_TRUE(createDirectory(folder.path() / "a" / "b" / "c"));
    EXPECT_TRUE(fs::is_directory(folder.path() / "a" / "b" / "c"));
}

TEST(CreateDirectory, FolderThatIsThereCountsAsSuccess) {
    const Support::TemporaryFolder folder;
    EXPECT_TRUE(createDirectory(folder.path()));
    EXPECT_TRUE(createDirectory("."));
}

TEST(CreateDirectory, LinkToAFolderCountsAsSuccess) {
    const Support::TemporaryFolder folder;
    fs::create_directory(folder.path() / "there");
    fs::create_directory_symlink("there", folder.path() / "link");
    EXPECT_TRUE(createDirectory(folder.path() / "link"));
    EXPECT_TRUE(createDirectory(folder.path() / "link" / "below"));
    EXPECT_TRUE(fs::is_directory(folder.path() / "there" / "below"));
}

TEST(CreateDirectory, NameBeyondAsciiIsKept) {
    const Support::TemporaryFolder folder;
    EXPECT_TRUE(createDirectory(folder.path() / "Höhe 高さ"));
    EXPECT_TRUE(fs::is_directory(folder.path() / "Höhe 高さ"));
}

TEST(CreateDirectory, PlainFileInThePlaceRaisesTheFilesystemsException) {
    const Support::TemporaryFolder folder;
    Support::writeBytes(folder / "file", "x");
    EXPECT_THROW((void)createDirectory(folder.path() / "file"), fs::filesystem_error);
    EXPECT_THROW((void)createDirectory(folder.path() / "file" / "below"), fs::filesystem_error);
}

} // namespace
