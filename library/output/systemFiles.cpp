// SPDX-License-Identifier: Apache-2.0
#include "library/output/systemFiles.hpp"

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <system_error>
#include <unistd.h>

#include <sys/sysmacros.h>

namespace Tidewatch {

int Descriptor::close() noexcept {
    const int number = std::exchange(number_, -1);
    // After EINTR the descriptor is closed, too.
    return number >= 0 && ::close(number) != 0 && errno != EINTR ? errno : 0;
}

int writeAll(const Descriptor& file, const char* bytes, std::size_t size) noexcept {
    for (std::size_t done = 0; done != size;) {
        const ssize_t put = ::write(file.number(), bytes + done, size - done);
        if (put > 0)
            done += static_cast<std::size_t>(put);
        else if (put == 0)
            return ENOSPC;
        else if (errno != EINTR)
            return errno;
    }
    return 0;
}

int takeOverMode(const Descriptor& file, const struct stat& from) noexcept {
    struct stat now {};
    if (::fstat(file.number(), &now) != 0)
        return errno;
    constexpr mode_t all = 07777;
    constexpr mode_t withoutIdentity = 01777;
    const bool isOwned = (now.st_uid == from.st_uid && now.st_gid == from.st_gid) ||
                         ::fchown(file.number(), from.st_uid, from.st_gid) == 0;
    if (!isOwned && now.st_gid != from.st_gid)
        // Setting only the group is often allowed; otherwise the file keeps the group of the process.
        (void)!::fchown(file.number(), static_cast<uid_t>(-1), from.st_gid);
    // Without the original owner and group, set-user-ID and set-group-ID would grant rights of another user.
    return ::fchmod(file.number(), from.st_mode & (isOwned ? all : withoutIdentity)) == 0 ? 0 : errno;
}

std::optional<Mount> Mount::of(const std::filesystem::path& path) noexcept {
    struct statx status {};
    if (::statx(AT_FDCWD, path.c_str(), AT_NO_AUTOMOUNT, STATX_BASIC_STATS | STATX_MNT_ID, &status) != 0)
        return std::nullopt;
    return Mount{makedev(status.stx_dev_major, status.stx_dev_minor),
                 (status.stx_mask & STATX_MNT_ID) != 0 ? status.stx_mnt_id : 0};
}

namespace {

int emptyFolder(int folder) noexcept {
    DIR* const stream = ::fdopendir(folder);
    if (stream == nullptr) {
        const int error = errno;
        ::close(folder);
        return error;
    }
    int failure = 0;
    for (;;) {
        errno = 0;
        const dirent* const entry = ::readdir(stream);
        if (entry == nullptr) {
            if (failure == 0)
                failure = errno;
            break;
        }
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0)
            continue;
        const int error = removeTree(::dirfd(stream), entry->d_name);
        if (failure == 0)
            failure = error;
    }
    ::closedir(stream);
    return failure;
}

} // namespace

std::vector<std::string> namesIn(const std::filesystem::path& folder) {
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(::opendir(folder.c_str()), &::closedir);
    std::vector<std::string> names;
    for (;;) {
        errno = 0;
        const dirent* const entry = stream ? ::readdir(stream.get()) : nullptr;
        if (entry == nullptr) {
            if (errno != 0)
                throw std::system_error(errno, std::generic_category(), folder.string());
            return names;
        }
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            names.emplace_back(entry->d_name);
    }
}

std::vector<std::filesystem::path> filesBelow(const std::filesystem::path& folder) {
    std::vector<std::filesystem::path> files;
    for (const std::string& name : namesIn(folder)) {
        struct stat status {};
        if (::lstat((folder / name).c_str(), &status) != 0)
            throw std::system_error(errno, std::generic_category(), (folder / name).string());
        if (!S_ISDIR(status.st_mode)) {
            files.emplace_back(name);
            continue;
        }
        for (const std::filesystem::path& file : filesBelow(folder / name))
            files.push_back(name / file);
    }
    return files;
}

int removeTree(int parent, const char* name) noexcept {
    const int folder = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (folder < 0) {
        const int error = errno;
        // It is a file or a link.
        if (error == ENOTDIR || error == ELOOP)
            return ::unlinkat(parent, name, 0) == 0 ? 0 : errno;
        // An empty folder can be removed without being opened.
        return error == ENOENT || ::unlinkat(parent, name, AT_REMOVEDIR) == 0 ? 0 : error;
    }
    const int failure = emptyFolder(folder);
    if (::unlinkat(parent, name, AT_REMOVEDIR) == 0)
        return 0;
    return failure != 0 ? failure : errno;
}

} // namespace Tidewatch
