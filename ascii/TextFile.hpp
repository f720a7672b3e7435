// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/LineWriter.hpp"
#include "convlib/WrittenFile.hpp"

#include <cstdint>
#include <filesystem>
#include <fstream>

namespace ExportLib {

/// An output file of the ASCII exporter. What cannot be opened or written is written to no effect, and the
/// record tells.
class TextFile {
public:
    /// Opens the file, with its content before where `append` is set; the file exists from here on.
    TextFile(const std::filesystem::path& path, bool append, bool flushLines);

    [[nodiscard]] ConvLib::LineWriter& lines() noexcept { return lines_; }

    /// Closes the file; `items` is the number of elements or cells in it.
    [[nodiscard]] ConvLib::WrittenFile close(std::uint64_t items);

private:
    std::filesystem::path path_;
    std::ofstream stream_;
    int openError_;
    ConvLib::LineWriter lines_;
};

} // namespace ExportLib
