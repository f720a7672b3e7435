// SPDX-License-Identifier: Apache-2.0
#include "host/output/Placement.hpp"

#include "anchor/Error.hpp"
#include "host/report/Wording.hpp"

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

void bringToDisk(const fs::path& path) {
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool done = file >= 0 && ::fsync(file) == 0;
    const int error = errno;
    if (file >= 0)
        ::close(file);
    if (!done)
        throw Anchor::FileError(
            fmt::format("{}: cannot bring the file to the disk: {}", path.string(), systemMessage(error)));
}

/// 0, or the error number.
int renameFile(const fs::path& from, const fs::path& to, bool overwrite) {
    if (!overwrite) {
        // Closes the gap between the check and the rename, during which somebody else may have made the file.
        if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
            return 0;
        if (errno != EINVAL && errno != ENOSYS)
            return errno;
        // Some file systems know no such rename.
    }
    return std::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

} // namespace

Placement::Placement(bool overwrite, std::vector<FileIdentity> inputs)
    : overwrite_(overwrite),
      inputs_(std::move(inputs)) {}

void Placement::check(const fs::path& target) const {
    struct stat status {};
    if (::stat(target.c_str(), &status) != 0) {
        if (errno == ENOTDIR)
            throw Anchor::FileError(target.string() + ": a part of the path is no folder");
        struct stat link {};
        if (errno == ENOENT && ::lstat(target.c_str(), &link) == 0 && !overwrite_)
            throw Anchor::FileError(target.string() +
                                    ": a link stands there already; --overwrite replaces it");
        return;
    }
    if (S_ISDIR(status.st_mode))
        throw Anchor::FileError(target.string() + ": a folder stands where the file is to go");
    if (!S_ISREG(status.st_mode))
        throw Anchor::FileError(target.string() + ": something stands there that is no ordinary file");
    const FileIdentity identity{status.st_dev, status.st_ino};
    if (std::find(inputs_.begin(), inputs_.end(), identity) != inputs_.end())
        throw Anchor::FileError(target.string() + ": the output is one of the inputs");
    if (!overwrite_)
        throw Anchor::FileError(target.string() + ": exists already; --overwrite replaces it");
}

void Placement::add(fs::path staged, fs::path target) {
    moves_.push_back({std::move(staged), std::move(target)});
}

void Placement::commit() {
    std::set<fs::path> targets;
    for (const Move& move : moves_) {
        if (!targets.insert(fs::absolute(move.target).lexically_normal()).second)
            throw Anchor::FileError(move.target.string() + ": two files are to go there");
        check(move.target);
    }
    for (const Move& move : moves_) {
        if (fs::exists(move.target))
            bringToDisk(move.staged);
    }
    std::vector<std::string> placed;
    for (const Move& move : moves_) {
        std::error_code error;
        if (const fs::path folder = move.target.parent_path(); !folder.empty())
            fs::create_directories(folder, error);
        const int failure = error ? error.value() : renameFile(move.staged, move.target, overwrite_);
        if (failure != 0)
            throw Anchor::FileError(fmt::format(
                "{}: cannot be put in place: {} ({})", move.target.string(), systemMessage(failure),
                placed.empty() ? "nothing was put in place" : "in place already: " + joined(placed)));
        placed.push_back(move.target.string());
    }
    moves_.clear();
}

} // namespace Tidewatch
