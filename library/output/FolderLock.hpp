// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/output/systemFiles.hpp"

#include <filesystem>
#include <functional>
#include <string>

namespace Tidewatch {

/// Prevents other runs of this program from appending to files of a folder during its lifetime. Locks the
/// folder, not the files, since appending replaces a file by renaming.
class FolderLock {
public:
    /// Waits until no other run holds the lock: `say` is called once with a message when that has taken a second, `check`
    /// several times a second and may throw to give up; either may be empty. Throws Anchor::FileError if the folder
    /// cannot be opened. Has no effect on a file system without locks.
    FolderLock(const std::filesystem::path& folder, const std::function<void(const std::string&)>& say,
               const std::function<void()>& check);

private:
    Descriptor folder_;
};

} // namespace Tidewatch
