// SPDX-License-Identifier: Apache-2.0
#include "anchor/FileState.hpp"

#include "support/TemporaryFolder.hpp"

#include <filesystem>

#include <gtest/gtest.h>

namespace {

using Anchor::FileIdentity;
using Anchor::FileState;

TEST(FileState, LinksLeadToTheSameFile) {
    const Support::TemporaryFolder folder;
    Support::writeBytes(folder / "a", "12");
    Support::writeBytes(folder / "b", "12");
    std::filesystem::create_hard_link(folder / "a", folder / "hard");
    std::filesystem::create_symlink("a", folder / "soft");
    const auto state = FileState::of(folder / "a");
    ASSERT_TRUE(state);
    EXPECT_EQ(state->size, 2U);
    EXPECT_EQ(FileState::of(folder / "hard"), state);
    EXPECT_EQ(FileState::of(folder / "soft"), state);
    EXPECT_EQ(FileIdentity::of(folder / "soft"), state->identity);
    EXPECT_NE(FileIdentity::of(folder / "b"), state->identity);
}

TEST(FileState, WritingChangesTheStateAndNotTheIdentity) {
    const Support::TemporaryFolder folder;
    Support::writeBytes(folder / "a", "12");
    const auto before = FileState::of(folder / "a");
    Support::writeBytes(folder / "a", "123");
    EXPECT_NE(FileState::of(folder / "a"), before);
    EXPECT_EQ(FileIdentity::of(folder / "a"), before->identity);
}

TEST(FileState, WhereThereIsNoFileThereIsNone) {
    const Support::TemporaryFolder folder;
    EXPECT_EQ(FileState::of(folder / "a"), std::nullopt);
    EXPECT_EQ(FileIdentity::of(folder / "a"), std::nullopt);
}

} // namespace
