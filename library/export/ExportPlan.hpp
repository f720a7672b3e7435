// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/report/Losses.hpp"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Tidewatch {

/// What an export would do, as far as that is known before any array is read.
struct ExportPlan {
    struct File {
        std::string path;
        /// The grids that go into it.
        std::vector<std::string> grids;
        /// The most items that it will have, and their unit in the plural: "points".
        std::uint64_t items = 0;
        std::string unit;
        /// About how large it will be.
        std::uint64_t bytes = 0;
        /// Whether it will be there in any case; else only if its array turns out to be what was stated.
        bool isCertain = true;
    };

    /// The number of input files, and their size in bytes.
    std::size_t inputs = 0;
    std::uint64_t inputBytes = 0;
    std::vector<File> files;
    /// The number of outputs, and of those that would be skipped since they are there already.
    std::size_t outputs = 0;
    std::size_t existing = 0;
    /// Those that do not depend on values.
    std::vector<Loss> losses;
    std::vector<std::string> notes;
    /// What would end the export, one text each.
    std::vector<std::string> obstacles;
    /// Why there are no files; empty if there are.
    std::string whyNothing;
};

} // namespace Tidewatch
