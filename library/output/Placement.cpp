// SPDX-License-Identifier: Apache-2.0
#include "library/output/Placement.hpp"

#include "anchor/Error.hpp"
#include "library/report/Wording.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <set>
#include <string>
#include <unistd.h>
#include <utility>

#include <fmt/format.h>
#include <sys/stat.h>

namespace Tidewatch {

namespace fs = std::filesystem;

namespace {

void flushToDisk(const fs::path& path) {
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool done = file >= 0 && ::fsync(file) == 0;
    const int error = errno;
    if (file >= 0)
        ::close(file);
    if (!done)
        throw Anchor::FileError(
            fmt::format("{}: cannot flush the file to the disk: {}", path.string(), systemMessage(error)));
}

/// 0, or the error number.
int renameFile(const fs::path& from, const fs::path& to, bool overwrite) {
    if (!overwrite) {
        // Closes the gap between the check and the rename, in which another process may create the file.
        if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
            return 0;
        if (errno != EINVAL && errno != ENOSYS)
            return errno;
        // Some file systems do not support this rename.
    }
    return std::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

/// A canonical form of a path; a symbolic link at the path itself is not followed.
fs::path placeOf(const fs::path& path) {
    const fs::path normal = fs::absolute(path).lexically_normal();
    return fs::weakly_canonical(normal.parent_path()) / normal.filename();
}

} // namespace

Placement::Placement(bool overwrite, std::vector<Anchor::FileIdentity> inputs)
    : overwrite_(overwrite),
      inputs_(std::move(inputs)) {}

void Placement::checkFolder(const fs::path& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0 ? !S_ISDIR(status.st_mode) : errno == ENOTDIR)
        throw Anchor::FileError(path.string() + ": is not a folder");
}

void Placement::check(const fs::path& target, Mode mode) const {
    struct stat status {};
    if (::stat(target.c_str(), &status) != 0) {
        if (errno == ENOTDIR)
            throw Anchor::FileError(target.string() + ": a part of the path is not a folder");
        struct stat link {};
        if (errno == ENOENT && ::lstat(target.c_str(), &link) == 0) {
            if (mode == Mode::Append)
                throw Anchor::FileError(target.string() + ": is a broken link");
            if (!overwrite_)
                throw Anchor::FileError(target.string() + ": is already a link; --overwrite replaces it");
        }
        return;
    }
    if (S_ISDIR(status.st_mode))
        throw Anchor::FileError(target.string() + ": is a folder");
    if (!S_ISREG(status.st_mode))
        throw Anchor::FileError(target.string() + ": exists and is not a regular file");
    const Anchor::FileIdentity identity{status.st_dev, status.st_ino};
    if (std::find(inputs_.begin(), inputs_.end(), identity) != inputs_.end())
        throw Anchor::FileError(target.string() + ": the output is one of the inputs");
    if (!overwrite_ && mode == Mode::Replace)
        throw Anchor::FileError(target.string() + ": already exists; --overwrite replaces it");
}

void Placement::add(fs::path staged, fs::path target, Mode mode) {
    moves_.push_back({std::move(staged), std::move(target), mode, std::nullopt});
}

void Placement::resolveTarget(Move& move) const {
    check(move.target, move.mode);
    if (move.mode == Mode::Append && fs::is_symlink(move.target))
        move.target = fs::canonical(move.target);
}

void Placement::prepare(Move& move, const std::function<void()>& check) {
    if (!fs::exists(move.target))
        return;
    if (move.mode == Mode::Append) {
        JoinedFile joined = joinFiles(move.target, move.staged, check);
        move.staged = std::move(joined.path);
        move.before = joined.head;
    }
    flushToDisk(move.staged);
}

void Placement::commit(const std::function<void()>& check) {
    std::set<fs::path> targets;
    for (Move& move : moves_) {
        resolveTarget(move);
        if (!targets.insert(placeOf(move.target)).second)
            throw Anchor::FileError(move.target.string() + ": is the target of two files");
    }
    for (Move& move : moves_)
        prepare(move, check);
    for (const Move& move : moves_) {
        if (move.before && Anchor::FileState::of(move.target) != move.before)
            throw Anchor::FileError(move.target.string() +
                                    ": the file was changed while it was being appended to");
    }
    std::vector<std::string> placed;
    for (const Move& move : moves_) {
        std::error_code error;
        if (const fs::path folder = move.target.parent_path(); !folder.empty())
            fs::create_directories(folder, error);
        const bool replaces = overwrite_ || move.before.has_value();
        const int failure = error ? error.value() : renameFile(move.staged, move.target, replaces);
        if (failure != 0)
            throw Anchor::FileError(fmt::format(
                "{}: cannot be put in place: {} ({})", move.target.string(), systemMessage(failure),
                placed.empty() ? "nothing was put in place" : "already in place: " + joined(placed)));
        placed.push_back(move.target.string());
    }
    moves_.clear();
}

} // namespace Tidewatch
