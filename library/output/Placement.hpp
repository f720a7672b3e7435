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

/// Puts finished files in place: all of them or, as far as can be known beforehand, none.
class TIDEWATCH_API Placement {
public:
    /// `overwrite`: existing files are replaced. `inputs` are files that must never be.
    Placement(bool overwrite, std::vector<Anchor::FileIdentity> inputs);

    /// What becomes of a file that exists at the target.
    enum class Mode {
        /// It is replaced, where that is allowed.
        Replace,
        /// It stays, and what is put there goes behind what it holds.
        Append
    };

    /// Throws Anchor::FileError when nothing may be put at `target`: it is one of the inputs, a folder or
    /// something else that is not a regular file is there, or a file does and is not to be replaced.
    void check(const std::filesystem::path& target, Mode mode = Mode::Replace) const;

    /// Throws Anchor::FileError when `path` exists and is not a folder.
    static void checkFolder(const std::filesystem::path& path);

    /// Notes a file that lies at `staged` on the same file system and is to be moved to `target`.
    void add(std::filesystem::path staged, std::filesystem::path target, Mode mode = Mode::Replace);

    /// Checks all targets, creates missing folders on the way to them, then renames. Throws Anchor::FileError before the
    /// first rename if two files have one target, a check fails, or a target lies on another mount than its file; when a
    /// rename fails, the message names the files that are in place already. Folders that were created and are empty are
    /// removed again.
    ///
    /// A file that is replaced passes on its permissions, and its owner as far as the process may.
    ///
    /// A file that is added to is joined with the new one beside the latter, also before the first rename; it
    /// keeps its permissions, and a link stays one. That it was changed between that and its rename is an error, too.
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

    /// Checks a target and resolves links to a file that is added to.
    void settle(Move& move) const;
    /// Makes what lies at `staged` ready to take its place.
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
