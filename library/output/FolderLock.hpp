// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/output/systemFiles.hpp"

#include <filesystem>
#include <functional>
#include <string>

namespace Tidewatch {

/// Keeps other runs of this program from adding to the files of a folder as long as it lives. Folders, and not the files
/// themselves, since a file that is added to is replaced by renaming.
class FolderLock {
public:
    /// Waits until no other run holds the lock: `say` is told once, `check` is called some times a second and may throw
    /// to give up; either may be empty. Throws Anchor::FileError if the folder cannot be opened. On a file system
    /// without locks there is none.
    FolderLock(const std::filesystem::path& folder, const std::function<void(const std::string&)>& say,
               const std::function<void()>& check);

private:
    Descriptor folder_;
};

} // namespace Tidewatch
