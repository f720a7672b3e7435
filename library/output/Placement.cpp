// SPDX-License-Identifier: Apache-2.0
#include "library/output/Placement.hpp"

#include "anchor/Error.hpp"
#include "library/output/joinFiles.hpp"
#include "library/output/systemFiles.hpp"
#include "library/report/Wording.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <unistd.h>
#include <utility>

#include <fmt/format.h>
#include <sys/stat.h>

namespace Tidewatch {

namespace fs = std::filesystem;

namespace {

/// Gives the file the mode of the one that it replaces, and flushes it to the disk.
void makeReplacement(const fs::path& path, const struct stat& replaced) {
    Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    const auto require = [&](int error) {
        if (error != 0)
            throw Anchor::FileError(
                fmt::format("{}: cannot be flushed to the disk: {}", path.string(), systemMessage(error)));
    };
    require(file.isOpen() ? takeOverMode(file, replaced) : errno);
    require(::fsync(file.number()) == 0 ? 0 : errno);
    require(file.close());
}

/// 0, or the error number.
int renameFile(const char* from, const char* to, bool overwrite) noexcept {
    if (!overwrite) {
        // Avoids a race: another process may create the file between the check and the rename.
        if (::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0)
            return 0;
        if (errno != EINVAL && errno != ENOSYS)
            return errno;
        // Some file systems do not support this rename.
    }
    return std::rename(from, to) == 0 ? 0 : errno;
}

/// A canonical form of a path; a symbolic link at the path itself is not followed.
fs::path placeOf(const fs::path& path) {
    const fs::path normal = fs::absolute(path).lexically_normal();
    return fs::weakly_canonical(normal.parent_path()) / normal.filename();
}

/// The nearest folder above a path that exists.
fs::path existingFolder(const fs::path& target) {
    std::error_code ignored;
    fs::path folder = fs::absolute(target).parent_path();
    while (!fs::exists(folder, ignored) && folder.has_relative_path())
        folder = folder.parent_path();
    return folder;
}

} // namespace

/// The folders that a placement creates; those that are still empty at the end are removed.
class Placement::CreatedFolders {
public:
    CreatedFolders() = default;
    CreatedFolders(const CreatedFolders&) = delete;
    CreatedFolders& operator=(const CreatedFolders&) = delete;
    ~CreatedFolders() {
        for (; !folders_.empty(); folders_.pop_back())
            ::rmdir(folders_.back().c_str());
    }

    void create(const fs::path& folder) {
        std::error_code ignored;
        if (folder.empty() || fs::exists(folder, ignored))
            return;
        create(folder.parent_path());
        folders_.reserve(folders_.size() + 1);
        fs::path name = folder;
        if (::mkdir(folder.c_str(), 0777) == 0)
            folders_.push_back(std::move(name));
        else if (errno != EEXIST)
            throw Anchor::FileError(
                fmt::format("{}: cannot create the folder: {}", folder.string(), systemMessage(errno)));
    }

private:
    std::vector<fs::path> folders_; // outermost first
};

Placement::Placement(bool overwrite, std::vector<Anchor::FileIdentity> inputs)
    : overwrite_(overwrite),
      inputs_(std::move(inputs)) {
    std::sort(inputs_.begin(), inputs_.end());
}

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
            if (!overwrite_ && mode == Mode::Replace)
                throw Anchor::FileError(target.string() + ": is already a link; --overwrite replaces it");
        }
        return;
    }
    if (S_ISDIR(status.st_mode))
        throw Anchor::FileError(target.string() + ": is a folder");
    if (!S_ISREG(status.st_mode))
        throw Anchor::FileError(target.string() + ": exists and is not a regular file");
    const Anchor::FileIdentity identity = Anchor::FileState(status).identity;
    if (std::binary_search(inputs_.begin(), inputs_.end(), identity))
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
    struct stat status {};
    if (::lstat(move.target.c_str(), &status) != 0)
        return;
    if (move.mode == Mode::Append) {
        JoinedFile joined = joinFiles(move.target, move.staged, check);
        move.staged = std::move(joined.path);
        move.before = joined.head;
    } else {
        // A link has no mode of its own.
        if (!S_ISREG(status.st_mode) && ::stat(move.staged.c_str(), &status) != 0)
            return;
        makeReplacement(move.staged, status);
    }
}

void Placement::checkMount(const Move& move) {
    const fs::path folder = existingFolder(move.target);
    const auto from = Mount::of(move.staged);
    const auto to = Mount::of(folder);
    if (from && to && *from != *to)
        throw Anchor::FileError(
            fmt::format("{}: {} lies on another file system than the rest of the output; nothing was "
                        "put in place. Export to that folder by itself",
                        move.target.string(), folder.string()));
}

void Placement::commit(const std::function<void()>& check,
                       const std::function<void(std::size_t)>& isPrepared) {
    std::vector<Move> moves;
    moves.swap(moves_);
    std::set<fs::path> targets;
    for (Move& move : moves) {
        resolveTarget(move);
        if (!targets.insert(placeOf(move.target)).second)
            throw Anchor::FileError(move.target.string() + ": is the target of two files");
        checkMount(move);
    }
    for (std::size_t number = 0; number != moves.size(); ++number) {
        prepare(moves[number], check);
        if (isPrepared)
            isPrepared(number + 1);
    }
    CreatedFolders folders;
    for (const Move& move : moves) {
        folders.create(move.target.parent_path());
        if (move.before)
            bytesBefore_[move.target] = move.before->size;
    }
    for (const Move& move : moves) {
        if (move.before && Anchor::FileState::of(move.target) != move.before)
            throw Anchor::FileError(move.target.string() +
                                    ": the file was changed while it was being appended to");
    }
    renameAll(moves);
}

void Placement::renameAll(const std::vector<Move>& moves) const {
    // Memory reserved for the message about a failed rename, in case memory has run out by then.
    std::size_t messageSize = 4096;
    for (const Move& move : moves)
        messageSize += 8 * move.target.native().size();
    auto reserve = std::make_unique<char[]>(messageSize);
    for (std::size_t number = 0; number != moves.size(); ++number) {
        const Move& move = moves[number];
        const bool replaces = overwrite_ || move.mode == Mode::Overwrite || move.before.has_value();
        const int failure = renameFile(move.staged.c_str(), move.target.c_str(), replaces);
        if (failure == 0)
            continue;
        const auto fail = [&] {
            std::string placed;
            for (std::size_t done = 0; done != number; ++done)
                placed += (done == 0 ? "already in place: " : ", ") + moves[done].target.string();
            throw Anchor::FileError(fmt::format("{}: cannot be put in place: {} ({})", move.target.string(),
                                                systemMessage(failure),
                                                placed.empty() ? "nothing was put in place" : placed));
        };
        try {
            fail();
        } catch (const std::bad_alloc&) {
            reserve.reset();
            fail();
        }
    }
}

std::uint64_t Placement::bytesBefore(const fs::path& target) const {
    const auto found = bytesBefore_.find(target);
    return found != bytesBefore_.end() ? found->second : 0;
}

} // namespace Tidewatch
