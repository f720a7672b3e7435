// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/FileState.hpp"
#include "anchor/Visibility.hpp"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <vector>

namespace Tidewatch {

/// Puts finished files in place: all of them or, as far as that can be checked in advance, none.
class TIDEWATCH_API Placement {
public:
    /// `overwrite`: existing files are replaced. `inputs` are files that are never replaced.
    Placement(bool overwrite, std::vector<Anchor::FileIdentity> inputs);

    /// What happens to an existing file at the target.
    enum class Mode {
        /// It is replaced if that is allowed.
        Replace,
        /// It is replaced in any case, unless it is one of the inputs.
        Overwrite,
        /// The new content is appended to it.
        Append
    };

    /// Throws Anchor::FileError if nothing may be put at `target`: it is one of the inputs, something other than a
    /// regular file, or an existing file that must not be replaced.
    void check(const std::filesystem::path& target, Mode mode = Mode::Replace) const;

    /// Throws Anchor::FileError if `path` exists and is not a folder.
    static void checkFolder(const std::filesystem::path& path);

    /// Adds a file that is to be moved from `staged` to `target` on the same file system.
    void add(std::filesystem::path staged, std::filesystem::path target, Mode mode = Mode::Replace);

    /// Checks all targets, creates missing folders on the way to them, then renames. Throws Anchor::FileError
    /// before the first rename if two files have the same target, a check fails, or a target is on another
    /// mount than its file; when a rename fails, the message names the files that are already in place.
    /// Created folders that are empty are removed again.
    ///
    /// The new file gets the permissions of the file that it replaces, and its owner if the process may set
    /// it.
    ///
    /// A file to append to is joined with the new one in a temporary file, also before the first rename; it keeps its
    /// permissions, and a symbolic link stays one. It is an error if the file changes between that and its rename.
    /// `check` is called meanwhile, unless it is empty, and may throw to stop.
    ///
    /// A file that replaces another one is flushed to the disk first, so that a power failure leaves the old
    /// or the new content. New files are not: that would take as long as writing them, and they can be
    /// exported again.
    ///
    /// From the first rename on, running out of memory does no harm: either everything is in place, or the
    /// message says what is.
    ///
    /// Afterwards, and after an exception, there is nothing left to move.
    ///
    /// `isPrepared`, unless it is empty, gets the number of files that are ready to be renamed, each time one is.
    void commit(const std::function<void()>& check = {},
                const std::function<void(std::size_t)>& isPrepared = {});

    /// After commit(): the size in bytes of a file before it was appended to; 0 for a new one.
    [[nodiscard]] std::uint64_t bytesBefore(const std::filesystem::path& target) const;

private:
    struct Move {
        std::filesystem::path staged;
        std::filesystem::path target;
        Mode mode;
        /// The state of the existing file at the target when it was read; nullopt if there was none.
        std::optional<Anchor::FileState> before = {};
    };
    class CreatedFolders;

    /// Checks a target and resolves links to a file that is appended to.
    void resolveTarget(Move& move) const;
    /// Prepares the file at `staged` for its rename.
    static void prepare(Move& move, const std::function<void()>& check);
    /// Throws if the file cannot be renamed to its target because they are on different mounts.
    static void checkMount(const Move& move);
    void renameAll(const std::vector<Move>& moves) const;

    bool overwrite_;
    std::vector<Anchor::FileIdentity> inputs_; // sorted
    std::vector<Move> moves_;
    std::map<std::filesystem::path, std::uint64_t> bytesBefore_;
};

} // namespace Tidewatch
