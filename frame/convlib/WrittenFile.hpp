// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

namespace ConvLib {

/// An exporter's record of one file that it wrote. Exporters are silent about output errors; this is how a
/// host finds out.
struct WrittenFile {
    /// The path that was opened.
    std::string path;
    /// Bytes passed to the stream, whether or not they reached the file.
    std::uint64_t bytes = 0;
    /// Points or cells written (after reduction).
    std::uint64_t items = 0;
    /// Whether opening, writing or closing failed.
    bool failed = false;
    /// The system's error number where it failed and the stream kept it; else 0.
    int error = 0;
    /// The grid that it was written for, and the time of its slice.
    double time = 0;
    std::string grid = {};
};

} // namespace ConvLib
