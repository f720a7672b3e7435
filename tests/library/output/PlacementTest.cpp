// SPDX-License-Identifier: Apache-2.0
#include "library/output/Placement.hpp"

#include "anchor/Error.hpp"
#include "library/output/systemFiles.hpp"
#include "support/TemporaryFolder.hpp"

#include <functional>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace Tidewatch {
namespace {

namespace fs = std::filesystem;

std::string messageOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const Anchor::FileError& error) {
        return error.what();
    }
    return {};
}

class PlacementTest : public ::testing::Test {
protected:
    fs::path file(const std::string& name, const std::string& content) {
        Support::writeBytes(place_ / name, content);
        return place_ / name;
    }

    Support::TemporaryFolder place_;
};

TEST_F(PlacementTest, FilesComeToTheirTargets) {
    Placement placement(false, {});
    placement.add(file("s1", "one"), place_ / "a");
    placement.add(file("s2", "two"), place_ / "new/folder/b");
    placement.commit();
    EXPECT_EQ(Support::readBytes(place_ / "a"), "one");
    EXPECT_EQ(Support::readBytes(place_ / "new/folder/b"), "two");
    EXPECT_FALSE(fs::exists(place_ / "s1"));
}

TEST_F(PlacementTest, AnExistingFileStaysUnlessOverwritingIsAskedFor) {
    file("a", "old");
    Placement careful(false, {});
    EXPECT_THAT(messageOf([&] { careful.check(place_ / "a"); }),
                ::testing::HasSubstr("already exists; --overwrite"));
    careful.add(file("s", "new"), place_ / "a");
    EXPECT_THROW(careful.commit(), Anchor::FileError);
    EXPECT_EQ(Support::readBytes(place_ / "a"), "old");

    Placement bold(true, {});
    bold.check(place_ / "a");
    bold.add(place_ / "s", place_ / "a");
    bold.commit();
    EXPECT_EQ(Support::readBytes(place_ / "a"), "new");
}

TEST_F(PlacementTest, ACollisionOfOneFileKeepsAllFromTheirPlaces) {
    file("b", "old");
    Placement placement(false, {});
    placement.add(file("s1", "one"), place_ / "a");
    placement.add(file("s2", "two"), place_ / "b");
    EXPECT_THROW(placement.commit(), Anchor::FileError);
    EXPECT_FALSE(fs::exists(place_ / "a"));
}

TEST_F(PlacementTest, AFolderInTheWayIsAnErrorEvenWhenOverwriting) {
    fs::create_directory(place_ / "a");
    const Placement placement(true, {});
    EXPECT_THAT(messageOf([&] { placement.check(place_ / "a"); }), ::testing::HasSubstr(": is a folder"));
}

TEST_F(PlacementTest, ADeviceInTheWayIsAnErrorEvenWhenOverwriting) {
    const Placement placement(true, {});
    EXPECT_THAT(messageOf([&] { placement.check("/dev/null"); }), ::testing::HasSubstr("not a regular file"));
}

TEST_F(PlacementTest, AFileOnThePathIsAnError) {
    file("a", "old");
    const Placement placement(true, {});
    EXPECT_THROW(placement.check(place_ / "a/b"), Anchor::FileError);
}

TEST_F(PlacementTest, AnInputIsNeverReplacedWhateverItsName) {
    const fs::path input = file("input", "data");
    fs::create_symlink(input, place_ / "symbolic");
    fs::create_hard_link(input, place_ / "hard");
    const Placement placement(true, {Anchor::FileIdentity::of(input).value()});
    for (const std::string name : {"input", "symbolic", "hard", "./input"})
        EXPECT_THAT(messageOf([&] { placement.check(place_ / name); }),
                    ::testing::HasSubstr("one of the inputs"))
            << name;
}

TEST_F(PlacementTest, ADanglingLinkCountsAsAnExistingFile) {
    fs::create_symlink("nowhere", place_ / "a");
    EXPECT_THROW(Placement(false, {}).check(place_ / "a"), Anchor::FileError);
    Placement bold(true, {});
    bold.add(file("s", "new"), place_ / "a");
    bold.commit();
    EXPECT_FALSE(fs::is_symlink(place_ / "a"));
    EXPECT_EQ(Support::readBytes(place_ / "a"), "new");
}

TEST_F(PlacementTest, TwoFilesOfOneTargetAreAnErrorBeforeTheFirstRename) {
    Placement placement(true, {});
    placement.add(file("s1", "one"), place_ / "a");
    placement.add(file("s2", "two"), place_ / "x/../a");
    EXPECT_THAT(messageOf([&] { placement.commit(); }), ::testing::HasSubstr("two files"));
    EXPECT_FALSE(fs::exists(place_ / "a"));
}

TEST_F(PlacementTest, WhenARenameFailsTheMessageNamesWhatIsInPlace) {
    Placement placement(false, {});
    placement.add(file("s1", "one"), place_ / "a");
    placement.add(place_ / "missing", place_ / "b");
    const std::string message = messageOf([&] { placement.commit(); });
    EXPECT_THAT(message, ::testing::StartsWith(place_ / "b"));
    EXPECT_THAT(message, ::testing::HasSubstr("already in place: " + (place_ / "a")));
}

TEST_F(PlacementTest, WhenTheFirstRenameFailsTheMessageSaysThatNothingIsInPlace) {
    Placement placement(false, {});
    placement.add(place_ / "missing", place_ / "b");
    EXPECT_THAT(messageOf([&] { placement.commit(); }), ::testing::HasSubstr("nothing was put in place"));
}

TEST_F(PlacementTest, WhatIsAddedGoesBehindWhatAFileHolds) {
    file("a", "old ");
    fs::permissions(place_ / "a", fs::perms::owner_read | fs::perms::owner_write);
    Placement placement(false, {});
    placement.check(place_ / "a", Placement::Mode::Append);
    placement.add(file("s1", "new"), place_ / "a", Placement::Mode::Append);
    placement.add(file("s2", "first"), place_ / "b", Placement::Mode::Append);
    placement.commit();
    EXPECT_EQ(Support::readBytes(place_ / "a"), "old new");
    EXPECT_EQ(Support::readBytes(place_ / "b"), "first");
    EXPECT_EQ(fs::status(place_ / "a").permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(PlacementTest, ALinkStaysOneWhenItsFileIsAddedTo) {
    fs::create_directory(place_ / "there");
    file("there/a", "old ");
    fs::create_symlink("there/a", place_ / "link");
    Placement placement(false, {});
    placement.add(file("s", "new"), place_ / "link", Placement::Mode::Append);
    placement.commit();
    EXPECT_TRUE(fs::is_symlink(place_ / "link"));
    EXPECT_EQ(Support::readBytes(place_ / "there/a"), "old new");
}

TEST_F(PlacementTest, TwoWaysToOneFileAreAnErrorBeforeAnythingIsAdded) {
    file("a", "old");
    fs::create_symlink("a", place_ / "link");
    Placement placement(false, {});
    placement.add(file("s1", "one"), place_ / "a", Placement::Mode::Append);
    placement.add(file("s2", "two"), place_ / "link", Placement::Mode::Append);
    EXPECT_THAT(messageOf([&] { placement.commit(); }), ::testing::HasSubstr("two files"));
    EXPECT_EQ(Support::readBytes(place_ / "a"), "old");
}

TEST_F(PlacementTest, NothingIsAddedToAnInputOrToALinkThatLeadsNowhere) {
    const fs::path input = file("input", "data");
    fs::create_symlink("nowhere", place_ / "link");
    const Placement placement(true, {Anchor::FileIdentity::of(input).value()});
    EXPECT_THAT(messageOf([&] { placement.check(input, Placement::Mode::Append); }),
                ::testing::HasSubstr("one of the inputs"));
    EXPECT_THAT(messageOf([&] { placement.check(place_ / "link", Placement::Mode::Append); }),
                ::testing::HasSubstr("is a broken link"));
}

TEST_F(PlacementTest, WhenOneFileCannotBeAddedToNoneIs) {
    file("a", "old");
    file("b", "old");
    Placement placement(false, {});
    placement.add(file("s1", "new"), place_ / "a", Placement::Mode::Append);
    placement.add(place_ / "missing", place_ / "b", Placement::Mode::Append);
    EXPECT_THAT(messageOf([&] { placement.commit(); }),
                ::testing::StartsWith((place_ / "b") + ": cannot be appended to: "));
    EXPECT_EQ(Support::readBytes(place_ / "a"), "old");
    EXPECT_EQ(Support::readBytes(place_ / "b"), "old");
}

TEST_F(PlacementTest, AFileThatIsReplacedPassesOnItsPermissions) {
    file("a", "old");
    fs::permissions(place_ / "a", fs::perms::owner_read | fs::perms::owner_write);
    Placement placement(true, {});
    placement.add(file("s", "new"), place_ / "a");
    placement.commit();
    EXPECT_EQ(Support::readBytes(place_ / "a"), "new");
    EXPECT_EQ(fs::status(place_ / "a").permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(PlacementTest, AFileThatIsReplacedPassesOnItsOwnerWhereThatIsAllowed) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "only the superuser may give files away";
    file("a", "old");
    ASSERT_EQ(::chown((place_ / "a").c_str(), 12345, 23456), 0);
    Placement placement(true, {});
    placement.add(file("s", "new"), place_ / "a");
    placement.commit();
    struct stat status {};
    ASSERT_EQ(::stat((place_ / "a").c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, 12345U);
    EXPECT_EQ(status.st_gid, 23456U);
}

TEST_F(PlacementTest, FoldersThatWereMadeForFilesThatDidNotComeAreRemoved) {
    fs::create_directory(place_ / "kept");
    Placement placement(false, {});
    placement.add(file("s1", "one"), place_ / "made/by/one/a");
    placement.add(place_ / "missing", place_ / "kept/made/b");
    placement.add(file("s3", "three"), place_ / "made/by/three/c");
    EXPECT_THAT(messageOf([&] { placement.commit(); }), ::testing::HasSubstr("in place already: "));
    EXPECT_TRUE(fs::exists(place_ / "made/by/one/a"));
    EXPECT_FALSE(fs::exists(place_ / "made/by/three"));
    EXPECT_TRUE(fs::is_empty(place_ / "kept"));
}

TEST_F(PlacementTest, ATargetOnAnotherFileSystemIsAnErrorBeforeAnythingIsReplaced) {
    const fs::path other = "/dev/shm";
    if (!fs::exists(other) || Mount::of(other) == Mount::of(place_.path()))
        GTEST_SKIP() << "no second file system";
    file("a", "old");
    fs::create_directory_symlink(other, place_ / "mounted");
    Placement placement(true, {});
    placement.add(file("s1", "one"), place_ / "a");
    placement.add(file("s2", "two"), place_ / "mounted/tidewatch-test-that-never-comes");
    EXPECT_THAT(messageOf([&] { placement.commit(); }), ::testing::HasSubstr("lies on another file system"));
    EXPECT_EQ(Support::readBytes(place_ / "a"), "old");
}

TEST_F(PlacementTest, BytesBeforeAreThoseThatAFileHeldWhenItWasAddedTo) {
    file("a", "old ");
    Placement placement(false, {});
    placement.add(file("s1", "new"), place_ / "a", Placement::Mode::Append);
    placement.add(file("s2", "new"), place_ / "b", Placement::Mode::Append);
    placement.commit();
    EXPECT_EQ(placement.bytesBefore(place_ / "a"), 4U);
    EXPECT_EQ(placement.bytesBefore(place_ / "b"), 0U);
}

TEST_F(PlacementTest, AFileInThePlaceOfAFolderIsAnError) {
    file("a", "old");
    EXPECT_THAT(messageOf([&] { Placement::checkFolder(place_ / "a"); }),
                ::testing::HasSubstr("not a folder"));
    EXPECT_THAT(messageOf([&] { Placement::checkFolder(place_ / "a/b"); }),
                ::testing::HasSubstr("not a folder"));
    Placement::checkFolder(place_.path());
    Placement::checkFolder(place_ / "new/one");
}

} // namespace
} // namespace Tidewatch
