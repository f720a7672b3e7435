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

/// A folder for unfinished files beside the place of the finished ones, so that moving them there is a rename.
///
///     PLACE/tidewatch-XXXXXX/note  who made it; locked as long as that process lives
///     PLACE/tidewatch-XXXXXX/0/    the unfinished files of the first run of an exporter, and so on
///
/// Such folders of runs of this machine that were killed are removed by the next run beside them.
class TIDEWATCH_API StagingFolder {
public:
    /// The unfinished files of one run of an exporter.
    class Run {
    public:
        /// Where they are to be written. The path goes by the open folder, not by its name: when somebody removes or
        /// replaces the folder, writing fails instead of ending up elsewhere. It has no dot, since exporters may take
        /// the last one of a path for the beginning of an extension.
        [[nodiscard]] const std::filesystem::path& path() const noexcept { return path_; }

        /// The same folder by its name, which is valid as long as the StagingFolder.
        [[nodiscard]] const std::filesystem::path& name() const noexcept { return name_; }

        /// Compares what is here with what an exporter says that it wrote: every file of the record is there
        /// with as many bytes as were handed to its stream, no stream failed, and there is nothing else. Returns
        /// the paths of the files, relative to the folder, ascending. `target` returns the final path of a relative
        /// one, for messages. Throws Anchor::FileError.
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

    /// Removes the folder with everything that is still in it, and those of the folders it created that are empty. What
    /// cannot be removed is named on the console.
    ~StagingFolder();

    StagingFolder(const StagingFolder&) = delete;
    StagingFolder& operator=(const StagingFolder&) = delete;

    /// A folder for one more run. Throws Anchor::FileError.
    [[nodiscard]] Run beginRun();

    /// Folders of unfinished files of other machines that were found beside this one, for people.
    [[nodiscard]] const std::vector<std::string>& leftovers() const noexcept { return leftovers_; }

private:
    void makePlace(const std::filesystem::path& place);
    void makeFolder();
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
