// SPDX-License-Identifier: Apache-2.0
#include "library/output/StagingFolder.hpp"

#include "anchor/Error.hpp"
#include "library/report/Wording.hpp"

#include <cerrno>
#include <cstdlib>
#include <map>
#include <system_error>

#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

namespace Tidewatch {

namespace fs = std::filesystem;

namespace {

/// The streams of exporters do not report why they failed; a full device is the usual cause.
std::string likelyCause(const fs::path& folder) {
    struct statvfs room {};
    if (::statvfs(folder.c_str(), &room) == 0 && room.f_bavail == 0)
        return ": " + systemMessage(ENOSPC);
    return {};
}

} // namespace

StagingFolder::StagingFolder(const fs::path& place) {
    try {
        makePlace(place);
        std::string pattern = (place / "tidewatch-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr)
            throw Anchor::FileError(fmt::format("{}: cannot create a folder for unfinished files there: {}",
                                                place.string(), systemMessage(errno)));
        path_ = pattern;
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
    for (; !missing.empty(); missing.pop_back()) {
        const fs::path& outermost = missing.back();
        if (::mkdir(outermost.c_str(), 0777) == 0)
            createdFolders_.push_back(outermost);
        else if (errno != EEXIST)
            throw Anchor::FileError(
                fmt::format("{}: cannot create the folder: {}", outermost.string(), systemMessage(errno)));
    }
}

void StagingFolder::remove() noexcept {
    std::error_code ignored;
    if (!path_.empty())
        fs::remove_all(path_, ignored);
    for (; !createdFolders_.empty(); createdFolders_.pop_back())
        ::rmdir(createdFolders_.back().c_str());
}

std::vector<fs::path> StagingFolder::verify(std::span<const ConvLib::WrittenFile> record,
                                            const std::function<fs::path(const fs::path&)>& target) const {
    // An exporter may write the same file several times; the last record counts.
    std::map<fs::path, std::uint64_t> bytesOf;
    for (const ConvLib::WrittenFile& file : record) {
        const fs::path relative = fs::path(file.path).lexically_relative(path_);
        if (relative.empty() || *relative.begin() == "..")
            throw Anchor::FileError(file.path + ": was written outside of the folder for unfinished files");
        if (file.failed)
            throw Anchor::FileError(
                fmt::format("{}: writing failed{}", target(relative).string(), likelyCause(path_)));
        bytesOf[relative] = file.bytes;
    }
    for (const auto& [relative, bytes] : bytesOf) {
        std::error_code error;
        const std::uint64_t size = fs::file_size(path_ / relative, error);
        if (error)
            throw Anchor::FileError(fmt::format("{}: the written file is missing: {}",
                                                target(relative).string(), error.message()));
        if (size != bytes)
            throw Anchor::FileError(fmt::format("{}: {} bytes were written, but the file has {}{}",
                                                target(relative).string(), bytes, size, likelyCause(path_)));
    }
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(path_)) {
        const fs::path relative = entry.path().lexically_relative(path_);
        if (!entry.is_directory() && !bytesOf.contains(relative))
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
