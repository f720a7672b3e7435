// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/WrittenFile.hpp"

#include <filesystem>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace Tidewatch {

/// A folder for unfinished files beside the place of the finished ones, so that moving them there is a
/// rename.
///
/// Its name is unique and holds no dot: exporters may take the last dot of a path for the beginning of an
/// extension.
class StagingFolder {
public:
    /// Makes the folder inside `place`; `place` itself and the folders above it are made where they are
    /// missing. Throws Anchor::FileError.
    explicit StagingFolder(const std::filesystem::path& place);

    /// Removes the folder with everything that still lies in it, and those of the folders it made that are
    /// empty.
    ~StagingFolder();

    StagingFolder(const StagingFolder&) = delete;
    StagingFolder& operator=(const StagingFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const noexcept { return path_; }

    /// Compares what lies here with what an exporter says that it wrote: every file of the record is there
    /// with as many bytes as were handed to its stream, no stream failed, and there is nothing else. Gives
    /// the paths of the files, relative to the folder, ascending. `target` tells the final path of a relative
    /// one, for messages. Throws Anchor::FileError.
    [[nodiscard]] std::vector<std::filesystem::path>
    verify(std::span<const ConvLib::WrittenFile> record,
           const std::function<std::filesystem::path(const std::filesystem::path&)>& target) const;

private:
    void makePlace(const std::filesystem::path& place);
    void remove() noexcept;

    std::vector<std::filesystem::path> madeFolders_; // outermost first
    std::filesystem::path path_;
};

} // namespace Tidewatch
