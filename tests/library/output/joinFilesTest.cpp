// SPDX-License-Identifier: Apache-2.0
#include "library/output/joinFiles.hpp"

#include "anchor/Error.hpp"
#include "support/TemporaryFolder.hpp"

#include <iterator>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

namespace fs = std::filesystem;

std::ptrdiff_t filesIn(const fs::path& folder) {
    return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
}

/// Text of no period that blocks of a power of two could hide.
std::string longText(std::size_t size, char first) {
    std::string text(size, ' ');
    for (std::size_t i = 0; i < size; ++i)
        text[i] = static_cast<char>(first + static_cast<int>(i % 23));
    return text;
}

TEST(JoinFiles, OneStandsBehindTheOtherWhateverTheirSizes) {
    constexpr std::size_t block = std::size_t{1} << 20;
    for (const std::size_t size : {std::size_t{0}, std::size_t{5}, block - 1, block, 2 * block + 1}) {
        const Support::TemporaryFolder place;
        const std::string head = longText(size, 'a');
        const std::string tail = longText(size + 3, 'A');
        Support::writeBytes(place / "head", head);
        Support::writeBytes(place / "tail", tail);
        const JoinedFile joined = joinFiles(place / "head", place / "tail");
        EXPECT_TRUE(Support::readBytes(joined.path) == head + tail) << size;
        EXPECT_EQ(joined.path.parent_path(), place.path());
        EXPECT_EQ(joined.head, Anchor::FileState::of(place / "head"));
        EXPECT_TRUE(Support::readBytes(place / "head") == head);
        EXPECT_TRUE(Support::readBytes(place / "tail") == tail);
    }
}

TEST(JoinFiles, AFileThatWasWrittenToHasAnotherState) {
    const Support::TemporaryFolder place;
    Support::writeBytes(place / "head", "one");
    const auto before = Anchor::FileState::of(place / "head");
    Support::writeBytes(place / "head", "more");
    EXPECT_NE(Anchor::FileState::of(place / "head"), before);
    EXPECT_EQ(Anchor::FileState::of(place / "absent"), std::nullopt);
}

TEST(JoinFiles, WhatCannotBeReadLeavesNothingBehind) {
    const Support::TemporaryFolder place;
    Support::writeBytes(place / "head", "one");
    try {
        (void)joinFiles(place / "head", place / "tail");
        FAIL() << "there is no tail";
    } catch (const Anchor::FileError& error) {
        EXPECT_THAT(error.what(), ::testing::StartsWith((place / "head") + ": cannot be appended to: "));
    }
    EXPECT_EQ(filesIn(place.path()), 1);
}

TEST(JoinFiles, AnInterruptionLeavesNothingBehind) {
    const Support::TemporaryFolder place;
    Support::writeBytes(place / "head", "one");
    Support::writeBytes(place / "tail", "two");
    struct Stop {};
    EXPECT_THROW((void)joinFiles(place / "head", place / "tail", [] { throw Stop(); }), Stop);
    EXPECT_EQ(filesIn(place.path()), 2);
}

} // namespace
} // namespace Tidewatch
