// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/input/FileIdentity.hpp"

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <functional>
#include <optional>

namespace Tidewatch {

/// Which file it is and in which state: a file that has been written to since has another one.
struct FileState {
    FileIdentity identity;
    std::int64_t size;
    std::int64_t seconds;
    std::int64_t nanoseconds;

    friend bool operator==(const FileState&, const FileState&) = default;

    /// The state of the file at a path, links followed; nothing where there is none.
    [[nodiscard]] static std::optional<FileState> of(const std::filesystem::path& path);
};

/// A new file that holds what two others hold.
struct JoinedFile {
    std::filesystem::path path;
    /// The state of the first of them when it was read.
    FileState head;
};

/// Writes what `head` holds and then what `tail` holds into a new file in the folder of `tail`, with the
/// permissions of `head`. Both stay as they are. Throws Anchor::FileError naming `head` when one cannot be
/// read or the new one cannot be written, and what `check` throws, which is called for each block (it may be empty); the
/// new file is then removed.
[[nodiscard]] JoinedFile joinFiles(const std::filesystem::path& head, const std::filesystem::path& tail,
                                   const std::function<void()>& check = {});

} // namespace Tidewatch
