// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

#include <compare>
#include <cstdint>
#include <filesystem>
#include <optional>

#include <sys/stat.h>

namespace Anchor {

/// Identifies a file independently of its names: device and inode.
struct TIDEWATCH_API FileIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;

    friend auto operator<=>(const FileIdentity&, const FileIdentity&) = default;

    /// The file at a path, following links; nullopt if there is none.
    [[nodiscard]] static std::optional<FileIdentity> of(const std::filesystem::path& path);
};

/// Identifies a file and its state: writing to the file changes its state.
struct TIDEWATCH_API FileState {
    FileIdentity identity;
    /// In bytes.
    std::uint64_t size = 0;
    /// The time of the last change, since the epoch.
    std::int64_t seconds = 0;
    std::int64_t nanoseconds = 0;

    FileState() = default;
    explicit FileState(const struct stat& status) noexcept;

    friend bool operator==(const FileState&, const FileState&) = default;

    /// The state of the file at a path, following links; nullopt if there is none.
    [[nodiscard]] static std::optional<FileState> of(const std::filesystem::path& path);
};

} // namespace Anchor
