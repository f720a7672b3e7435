// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/WrittenFile.hpp"

#include <filesystem>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace Tidewatch {

/// A folder for unfinished files beside the destination, so that they can be moved there by a rename.
///
/// Its name is unique and contains no dot: exporters may interpret the last dot of a path as the start of an
/// extension.
class StagingFolder {
public:
    /// Creates the folder inside `place`; creates `place` and its parent folders if they are missing. Throws
    /// Anchor::FileError.
    explicit StagingFolder(const std::filesystem::path& place);

    /// Removes the folder with its remaining contents, and the parent folders that it created if they are
    /// empty.
    ~StagingFolder();

    StagingFolder(const StagingFolder&) = delete;
    StagingFolder& operator=(const StagingFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const noexcept { return path_; }

    /// Compares the folder with an exporter's record: every file of the record exists with as many bytes as
    /// were passed to its stream, no stream failed, and there is nothing else. Returns the paths of the
    /// files, relative to the folder, ascending. `target` returns the final path for a relative one, for
    /// messages. Throws Anchor::FileError.
    [[nodiscard]] std::vector<std::filesystem::path>
    verify(std::span<const ConvLib::WrittenFile> record,
           const std::function<std::filesystem::path(const std::filesystem::path&)>& target) const;

private:
    void makePlace(const std::filesystem::path& place);
    void remove() noexcept;

    std::vector<std::filesystem::path> createdFolders_; // outermost first
    std::filesystem::path path_;
};

} // namespace Tidewatch
