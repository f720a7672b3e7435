// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/LineWriter.hpp"
#include "convlib/WrittenFile.hpp"

#include <cstdint>
#include <filesystem>
#include <fstream>

namespace ExportLib {

/// An output file of the ASCII exporter. If it cannot be opened or written, writing has no effect and the
/// record is marked as failed.
class TextFile {
public:
    /// Opens the file, which exists from then on; keeps its content if `append` is true.
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
