// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/FileState.hpp"

#include <filesystem>
#include <functional>

namespace Tidewatch {

/// A new file with the contents of two others.
struct JoinedFile {
    std::filesystem::path path;
    /// The state of the first file when it was read.
    Anchor::FileState head;
};

/// Concatenates `head` and `tail` in a new file in the folder of `tail`, with the permissions of `head`, and
/// flushes it to the disk. Both remain unchanged. Throws Anchor::FileError naming `head` when one cannot be
/// read or the new one cannot be written, and what `check` throws, which is called for each block (it may be
/// empty); the new file is then removed.
[[nodiscard]] JoinedFile joinFiles(const std::filesystem::path& head, const std::filesystem::path& tail,
                                   const std::function<void()>& check = {});

} // namespace Tidewatch
