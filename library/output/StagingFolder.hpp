// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"
#include "convlib/WrittenFile.hpp"
#include "library/output/systemFiles.hpp"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace Tidewatch {

/// A folder for unfinished files inside the output folder, so that files can be put in place by renaming.
///
///     PLACE/tidewatch-XXXXXX/note  who made it; locked as long as that process lives
///     PLACE/tidewatch-XXXXXX/0/    the unfinished files of the first run of an exporter, and so on
///
/// Such folders of killed runs on this machine are removed by the next run in the same output folder.
class TIDEWATCH_API StagingFolder {
public:
    /// The unfinished files of one run of an exporter.
    class Run {
    public:
        /// Where to write them. The path refers to the open folder, not to its name: if the folder is removed
        /// or replaced, writing fails instead of going elsewhere. It contains no dot, which exporters might
        /// take for the beginning of an extension.
        [[nodiscard]] const std::filesystem::path& path() const noexcept { return path_; }

        /// The same folder by its name; valid as long as the StagingFolder.
        [[nodiscard]] const std::filesystem::path& name() const noexcept { return name_; }

        /// Compares the folder with the exporter's record: every file of the record exists with the recorded
        /// size, no stream failed, and there are no other files. Returns the paths of the files, relative to
        /// the folder, in ascending order. `target` maps a relative path to the final one, for messages.
        /// Throws Anchor::FileError.
        [[nodiscard]] std::vector<std::filesystem::path>
        verify(std::span<const ConvLib::WrittenFile> record,
               const std::function<std::filesystem::path(const std::filesystem::path&)>& target) const;

    private:
        friend class StagingFolder;
        explicit Run(std::filesystem::path name);

        std::filesystem::path name_;
        Descriptor handle_;
        std::filesystem::path path_;
    };

    /// Creates the folder inside `place`; `place` itself and the folders above it are created if missing. Throws
    /// Anchor::FileError.
    explicit StagingFolder(const std::filesystem::path& place);

    /// Removes the folder with its contents, and the folders that it created if they are empty. Failures are
    /// reported on the console.
    ~StagingFolder();

    StagingFolder(const StagingFolder&) = delete;
    StagingFolder& operator=(const StagingFolder&) = delete;

    /// A folder for one more run. Throws Anchor::FileError.
    [[nodiscard]] Run beginRun();

    /// Removes the folder of a run with what is left in it. What cannot be removed now is when the object is destroyed.
    void endRun(const Run& run) noexcept;

    /// Messages about folders of unfinished files of other machines in the same output folder.
    [[nodiscard]] const std::vector<std::string>& leftovers() const noexcept { return leftovers_; }

private:
    void makePlace(const std::filesystem::path& place);
    void makeFolder();
    int tryToMakeFolder();
    void removeOrphans();
    void remove() noexcept;

    std::filesystem::path place_;
    std::vector<std::filesystem::path> madeFolders_; // outermost first
    Descriptor placeHandle_;
    std::string name_;
    Descriptor note_;
    std::size_t runs_ = 0;
    std::vector<std::string> leftovers_;
};

} // namespace Tidewatch
