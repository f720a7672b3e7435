// SPDX-License-Identifier: Apache-2.0
#include "library/output/StagingFolder.hpp"

#include "anchor/Console.hpp"
#include "anchor/Error.hpp"
#include "anchor/printable.hpp"
#include "library/report/Wording.hpp"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <map>
#include <optional>
#include <string_view>
#include <system_error>
#include <unistd.h>
#include <utility>

#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

namespace Tidewatch {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view namePrefix = "tidewatch-";
/// Of a folder that has no note as yet, or may have none any more, while it is made or removed. Whoever has the lock of the
/// folder itself may remove it.
constexpr std::string_view newPrefix = ".tidewatch-new-";
constexpr const char* noteName = "note";
constexpr std::string_view noteTitle = "unfinished files of tidewatch";

/// The process that created a folder of unfinished files.
struct Maker {
    std::string host;
    /// Changes with every boot.
    std::string boot;
    std::string process;

    static Maker thisProcess() {
        std::array<char, 256> host{};
        (void)::gethostname(host.data(), host.size() - 1);
        std::string boot;
        std::getline(std::ifstream("/proc/sys/kernel/random/boot_id"), boot);
        return {host.data(), boot, std::to_string(::getpid())};
    }

    [[nodiscard]] std::string text() const {
        return fmt::format("{}\nhost {}\nboot {}\nprocess {}\n", noteTitle, host, boot, process);
    }

    /// nullopt if it is not such a note.
    static std::optional<Maker> parse(std::string_view text) {
        const auto line = [&](std::string_view label) -> std::optional<std::string> {
            const std::size_t end = text.find('\n');
            if (end == std::string_view::npos || !text.starts_with(label))
                return std::nullopt;
            std::string value(text.substr(label.size(), end - label.size()));
            text.remove_prefix(end + 1);
            return value;
        };
        const auto title = line(noteTitle);
        auto host = title ? line("host ") : std::nullopt;
        auto boot = host ? line("boot ") : std::nullopt;
        auto process = boot ? line("process ") : std::nullopt;
        return process ? std::optional(Maker{*host, *boot, *process}) : std::nullopt;
    }
};

/// The probable cause of a stream's failure without an error number.
std::string likelyCause(const fs::path& folder) {
    struct statvfs room {};
    if (::statvfs(folder.c_str(), &room) != 0)
        return ": " + systemMessage(errno);
    if (room.f_bavail == 0)
        return ": " + systemMessage(ENOSPC);
    if (room.f_files != 0 && room.f_favail == 0)
        return ": " + systemMessage(ENOSPC) + " for another file (the file system has no inodes left)";
    return ": not everything arrived, and the system gave no reason";
}

std::string causeOf(const ConvLib::WrittenFile& file, const fs::path& folder) {
    return file.error != 0 ? ": " + systemMessage(file.error) : likelyCause(folder);
}

bool tryToLock(const Descriptor& file) {
    return ::flock(file.number(), LOCK_EX | LOCK_NB) == 0;
}

/// 0, or the error number; nothing is replaced.
int renameFolder(const std::string& from, const std::string& to) noexcept {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS)
        return errno;
    // Some file systems do not support this rename.
    struct stat status {};
    if (::lstat(to.c_str(), &status) == 0)
        return EEXIST;
    return std::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

/// Removes a folder of unfinished files; meanwhile it has the other name, so that what an interruption leaves can be told
/// from the folders of others. 0, or the first error number, and then it has its name again.
int removeFolder(const Descriptor& place, const std::string& name) noexcept {
    const int parent = place.number();
    std::array<char, 32> other{};
    static_assert(newPrefix.size() + 7 <= other.size());
    if (name.starts_with(newPrefix))
        return removeTree(parent, name.c_str());
    std::snprintf(other.data(), other.size(), "%s%s", newPrefix.data(), name.c_str() + namePrefix.size());
    const Descriptor folder(::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (folder.isOpen())
        (void)tryToLock(folder);
    if (::renameat(parent, name.c_str(), parent, other.data()) != 0)
        return removeTree(parent, name.c_str());
    const int error = removeTree(parent, other.data());
    if (error != 0)
        (void)::renameat(parent, other.data(), parent, name.c_str());
    return error;
}

bool isName(const std::string& name, std::string_view prefix) {
    return name.starts_with(prefix) && name.size() == prefix.size() + 6;
}

} // namespace

StagingFolder::StagingFolder(const fs::path& place) : place_(place) {
    try {
        makePlace(place);
        placeHandle_ = Descriptor(::open(place.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        makeFolder();
        removeOrphans();
    } catch (...) {
        remove();
        throw;
    }
}

StagingFolder::~StagingFolder() {
    remove();
}

void StagingFolder::makePlace(const fs::path& place) {
    std::vector<fs::path> missing;
    std::error_code ignored;
    for (fs::path folder = place; !folder.empty() && !fs::exists(folder, ignored);
         folder = folder.parent_path())
        missing.push_back(folder);
    madeFolders_.reserve(missing.size());
    for (; !missing.empty(); missing.pop_back()) {
        fs::path& outermost = missing.back();
        if (::mkdir(outermost.c_str(), 0777) == 0)
            madeFolders_.push_back(std::move(outermost));
        else if (errno != EEXIST)
            throw Anchor::FileError(
                fmt::format("{}: cannot create the folder: {}", outermost.string(), systemMessage(errno)));
    }
}

void StagingFolder::makeFolder() {
    const auto fail = [&](int error) {
        throw Anchor::FileError(fmt::format("{}: cannot create a folder for unfinished files there: {}",
                                            place_.string(), systemMessage(error)));
    };
    if (!placeHandle_.isOpen())
        fail(errno);
    // Until its note is there it has another name, so that whatever a killed process leaves can be told from the
    // folders of others.
    int error = EEXIST;
    for (int attempt = 0; attempt < 100 && (error == EEXIST || error == ENOENT); ++attempt)
        error = tryToMakeFolder();
    if (error != 0)
        fail(error);
}

/// 0, or the error number: EEXIST where the name is taken, ENOENT where somebody removed what had just been made.
int StagingFolder::tryToMakeFolder() {
    std::string made = (place_ / (std::string(newPrefix) + "XXXXXX")).string();
    if (::mkdtemp(made.data()) == nullptr)
        return errno;
    // From here on the destructor has to remove the folder; swap() cannot fail.
    std::string name = made.substr(made.size() - newPrefix.size() - 6);
    name_.swap(name);
    const fs::path folder = made;
    // Whoever has the lock may remove the folder.
    const Descriptor lock(::open(made.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat status {};
    if (!lock.isOpen() || (::flock(lock.number(), LOCK_EX) == 0 && ::fstat(lock.number(), &status) == 0 &&
                           status.st_nlink == 0)) {
        name_.clear();
        return ENOENT;
    }
    note_ = Descriptor(::open((folder / noteName).c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!note_.isOpen())
        return errno;
    // On file systems without locks, the folder is never taken for an orphan, since locking always fails.
    (void)tryToLock(note_);
    const std::string text = Maker::thisProcess().text();
    if (const int error = writeAll(note_, text.data(), text.size()); error != 0)
        return error;
    std::string final = std::string(namePrefix) + made.substr(made.size() - 6);
    if (const int error = renameFolder(made, (place_ / final).string()); error != 0) {
        removeTree(placeHandle_.number(), name_.c_str());
        name_.clear();
        return error;
    }
    name_.swap(final);
    return 0;
}

StagingFolder::Run::Run(fs::path name) : name_(std::move(name)) {
    const bool isMade = ::mkdir(name_.c_str(), 0777) == 0;
    if (isMade)
        handle_ = Descriptor(::open(name_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!handle_.isOpen())
        throw Anchor::FileError(fmt::format("{}: cannot create a folder for unfinished files there: {}",
                                            name_.parent_path().parent_path().string(),
                                            systemMessage(errno)));
    path_ = fmt::format("/proc/self/fd/{}", handle_.number());
    // If /proc is not mounted, use the name.
    if (::access(path_.c_str(), W_OK) != 0)
        path_ = name_;
}

StagingFolder::Run StagingFolder::beginRun() {
    return Run(place_ / name_ / std::to_string(runs_++));
}

void StagingFolder::endRun(const Run& run) noexcept {
    static_cast<void>(removeTree(AT_FDCWD, run.name_.c_str()));
}

void StagingFolder::removeOrphans() {
    const Maker self = Maker::thisProcess();
    std::vector<std::string> names;
    try {
        names = namesIn(place_);
    } catch (const std::system_error&) {
        // Orphans in a folder that is writable but cannot be listed are not removed.
        return;
    }
    for (const std::string& name : names) {
        if (isName(name, newPrefix)) {
            const Descriptor unfinished(
                ::open((place_ / name).c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
            if (unfinished.isOpen() && tryToLock(unfinished))
                removeTree(placeHandle_.number(), name.c_str());
            continue;
        }
        if (!isName(name, namePrefix) || name == name_)
            continue;
        const Descriptor note(::open((place_ / name / noteName).c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
        std::array<char, 1024> text{};
        const ssize_t size = note.isOpen() ? ::pread(note.number(), text.data(), text.size(), 0) : -1;
        const auto maker =
            size > 0 ? Maker::parse({text.data(), static_cast<std::size_t>(size)}) : std::nullopt;
        if (!maker)
            continue;
        if (maker->host != self.host || maker->boot != self.boot) {
            leftovers_.push_back(fmt::format(
                "{}: unfinished files of process {} on {}; remove them if it has ended",
                (place_ / name).string(), Anchor::printable(maker->process), Anchor::printable(maker->host)));
        } else if (tryToLock(note)) {
            removeFolder(placeHandle_, name);
        }
    }
}

void StagingFolder::remove() noexcept {
    if (!name_.empty()) {
        const int error = removeFolder(placeHandle_, name_);
        if (error != 0) {
            try {
                Anchor::Console() << (place_ / name_).string()
                                  << ": unfinished files cannot be removed: " << systemMessage(error);
            } catch (...) {
                // Out of memory: no message.
            }
        }
        name_.clear();
    }
    for (; !madeFolders_.empty(); madeFolders_.pop_back())
        ::rmdir(madeFolders_.back().c_str());
}

std::vector<fs::path>
StagingFolder::Run::verify(std::span<const ConvLib::WrittenFile> record,
                           const std::function<fs::path(const fs::path&)>& target) const {
    // An exporter may write a file several times; the last size counts.
    std::map<fs::path, std::uint64_t> bytesOf;
    for (const ConvLib::WrittenFile& file : record) {
        const fs::path relative = fs::path(file.path).lexically_relative(path_);
        if (relative.empty() || *relative.begin() == "..")
            throw Anchor::FileError(file.path + ": was written outside of the folder for unfinished files");
        if (file.failed)
            throw Anchor::FileError(
                fmt::format("{}: writing failed{}", target(relative).string(), causeOf(file, path_)));
        bytesOf[relative] = file.bytes;
    }
    for (const auto& [relative, bytes] : bytesOf) {
        std::error_code error;
        const std::uint64_t size = fs::file_size(path_ / relative, error);
        if (error)
            throw Anchor::FileError(fmt::format("{}: the written file is missing: {}",
                                                target(relative).string(), error.message()));
        if (size != bytes)
            throw Anchor::FileError(fmt::format("{}: {} bytes were written, but the file has {}",
                                                target(relative).string(), bytes, size));
    }
    for (const fs::path& relative : filesBelow(path_)) {
        if (!bytesOf.contains(relative))
            throw Anchor::FileError(target(relative).string() +
                                    ": a file of that name was written without a record");
    }
    std::vector<fs::path> files;
    files.reserve(bytesOf.size());
    for (const auto& [relative, bytes] : bytesOf)
        files.push_back(relative);
    return files;
}

} // namespace Tidewatch
