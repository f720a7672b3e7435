// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/report/Losses.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Tidewatch {

/// What an export did, or is about to put in place.
struct ExportReport {
    struct File {
        std::string path;
        std::uint64_t items = 0;
        std::uint64_t bytes = 0;
        /// What the items are, in the plural: "points".
        std::string unit;
        /// Where the file holds one grid.
        std::optional<std::string> grid;
        std::optional<double> time;
        /// What the file held before, where it was added to.
        std::uint64_t bytesBefore = 0;
    };

    std::vector<File> files;
    std::vector<Loss> losses;
    /// What is neither a loss nor a fault and yet worth knowing.
    std::vector<std::string> notes;
    /// What the exporter said went wrong. Files that are complete are put in place anyway.
    std::vector<std::string> errors;
    /// Whether the exporters came to their end; otherwise nothing is put in place.
    bool completed = true;
    /// Why there are no files; empty where there are.
    std::string whyNothing;
    /// Whether the files are in place.
    bool placed = false;
};

} // namespace Tidewatch
