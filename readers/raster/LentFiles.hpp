// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/source/Source.hpp"

#include <atomic>
#include <cpl_string.h>
#include <string>

namespace Tidewatch::Raster {

/// Makes open files available to GDAL in this process under virtual paths, for the lifetime of the object:
/// each under its own name, since several formats depend on it, in a folder that contains nothing else. Using
/// such a path opens no file. (GDAL's plugin handler of virtual files.)
class LentFiles {
public:
    /// The files have to stay open meanwhile.
    explicit LentFiles(const SourceFiles& files);
    ~LentFiles();
    LentFiles(const LentFiles&) = delete;
    LentFiles& operator=(const LentFiles&) = delete;

    /// GDAL's path of the first file.
    [[nodiscard]] const std::string& path() const noexcept { return path_; }

    /// The names of all files, as a GDAL string list.
    [[nodiscard]] const char* const* names() const noexcept { return names_.List(); }

    /// The system's error number of the first read that failed; 0 while there is none.
    [[nodiscard]] int failure() const noexcept { return failure_; }

private:
    friend class Handler;

    const SourceFiles& files_;
    std::string folder_;
    std::string path_;
    CPLStringList names_;
    std::atomic<int> failure_ = 0;
};

} // namespace Tidewatch::Raster
