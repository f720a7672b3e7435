// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host/input/FileIdentity.hpp"

#include <filesystem>
#include <vector>

namespace Tidewatch {

/// Puts finished files in place: all of them or, as far as can be known beforehand, none.
class Placement {
public:
    /// `overwrite`: files that stand in the way are replaced. `inputs` are files that must never be.
    Placement(bool overwrite, std::vector<FileIdentity> inputs);

    /// Throws Anchor::FileError when nothing may be put at `target`: it is one of the inputs, a folder or
    /// another thing that is no regular file stands there, or a file does and is not to be replaced.
    void check(const std::filesystem::path& target) const;

    /// Notes a file that lies at `staged` on the same file system and is to be moved to `target`.
    void add(std::filesystem::path staged, std::filesystem::path target);

    /// Checks all targets, then renames. Missing folders on the way to a target are made. Throws
    /// Anchor::FileError before the first rename when two files have one target or a check fails; when a
    /// rename fails, the message names the files that are in place already.
    ///
    /// A file that replaces another one is brought to the disk first, so that a power failure leaves the old
    /// or the new content. New files are not: that would cost the time of writing once more, and what it
    /// would save can be made again.
    void commit();

private:
    struct Move {
        std::filesystem::path staged;
        std::filesystem::path target;
    };

    bool overwrite_;
    std::vector<FileIdentity> inputs_;
    std::vector<Move> moves_;
};

} // namespace Tidewatch
