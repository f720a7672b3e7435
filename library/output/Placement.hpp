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

    /// Checks all targets, creates missing folders on the way to them, then renames. Throws Anchor::FileError before the
    /// first rename if two files have one target, a check fails, or a target lies on another mount than its file; when a
    /// rename fails, the message names the files that are in place already. Folders that were created and are empty are
    /// removed again.
    ///
    /// A file that is replaced passes on its permissions, and its owner as far as the process may.
    ///
    /// A file to append to is joined with the new one in a temporary file, also before the first rename; it keeps its
    /// permissions, and a symbolic link stays one. It is an error if the file changes between that and its rename.
    /// `check` is called meanwhile, unless it is empty, and may throw to stop.
    ///
    /// A file that replaces another one is flushed to the disk first, so that a power failure leaves the old
    /// or the new content. New files are not: that would cost the time of writing once more, and what it
    /// would save can be made again.
    ///
    /// From the first rename on no memory is needed that is not there: either everything is in place, or the message
    /// says what is.
    void commit(const std::function<void()>& check = {});

    /// After commit(): the bytes that a file held which was added to; 0 for a new one.
    [[nodiscard]] std::uint64_t bytesBefore(const std::filesystem::path& target) const;

private:
    struct Move {
        std::filesystem::path staged;
        std::filesystem::path target;
        Mode mode;
        /// What the file at the target was like when it was looked at; nullopt if there was none.
        std::optional<Anchor::FileState> before = {};
    };
    class CreatedFolders;

    /// Checks a target and resolves links to a file that is appended to.
    void resolveTarget(Move& move) const;
    /// Prepares the file at `staged` for its rename.
    static void prepare(Move& move, const std::function<void()>& check);
    /// Throws if a rename cannot lead from where the file lies to its target.
    static void checkMount(const Move& move);
    void renameAll() const;

    bool overwrite_;
    std::vector<Anchor::FileIdentity> inputs_;
    std::vector<Move> moves_;
    std::map<std::filesystem::path, std::uint64_t> bytesBefore_;
};

} // namespace Tidewatch
