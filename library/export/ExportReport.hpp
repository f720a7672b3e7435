// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/report/Losses.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Tidewatch {

/// What an export did, or will put in place.
struct ExportReport {
    struct File {
        std::string path;
        std::uint64_t items = 0;
        std::uint64_t bytes = 0;
        /// The unit of the items, in the plural: "points".
        std::string unit;
        /// Set if the file contains one grid.
        std::optional<std::string> grid;
        std::optional<double> time;
        /// The previous size of a file that was appended to.
        std::uint64_t bytesBefore = 0;
    };

    /// An output, or an input, of which nothing was put in place.
    struct Failure {
        std::string name;
        /// Names the file, too.
        std::string message;
    };

    std::vector<File> files;
    /// The number of outputs that there are to write, and of those, where they stand by themselves, that were there
    /// already or are done.
    std::size_t outputs = 0;
    std::size_t existing = 0;
    std::size_t done = 0;
    /// Whether outputs stand by themselves; only then are there failures.
    bool isEach = false;
    std::vector<Failure> failures;
    std::vector<Loss> losses;
    /// Remarks that are neither a loss nor an error.
    std::vector<std::string> notes;
    /// Errors that the exporter recorded. Complete files are put in place anyway.
    std::vector<std::string> errors;
    /// Whether the exporters finished; otherwise nothing is put in place.
    bool completed = true;
    /// Why there are no files; empty if there are, and where all outputs were there already, failed, or are of other parts.
    std::string whyNothing;
    /// Whether the files are in place; where outputs stand by themselves, all that are listed are.
    bool placed = false;
};

} // namespace Tidewatch
