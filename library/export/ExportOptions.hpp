// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/input/Filters.hpp"
#include "library/output/OutputPattern.hpp"
#include "library/report/Losses.hpp"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

namespace Tidewatch {

/// One of several processes that share the outputs of an export: it writes every `count`th one, from the `number`th, which
/// is 1 for the first.
struct Part {
    std::size_t number = 1;
    std::size_t count = 1;

    /// Whether an output, counted from 0, is of this part.
    [[nodiscard]] bool contains(std::size_t output) const noexcept { return output % count == number - 1; }
};

/// Whether the outputs of an export stand by themselves. An output is what one name that OUTPUT gives becomes: a file with
/// its tiles, or a folder. By default all of them are put in place together at the end, or none.
struct EachOutput {
    /// Each is put in place as soon as it is written, whatever becomes of the others. The other members imply it.
    bool isPlaced = false;
    /// An output that fails does not end the others.
    bool keepsGoing = false;
    /// Outputs whose files are all there are left as they are; one with only some of its files is written again.
    bool skipsExisting = false;
    /// Only the outputs of this part.
    std::optional<Part> part = {};

    [[nodiscard]] bool isAsked() const noexcept { return isPlaced || keepsGoing || skipsExisting || part; }
};

/// Options that exports to all formats have in common.
struct ExportOptions {
    Filters filters;
    /// Where the files go; "{grid}" and "{time}" in it give each grid or time its own output.
    OutputPattern output;
    /// Whether existing files are replaced.
    bool overwrite = false;
    /// Whether grids may overwrite each other's files, as exporters let them; otherwise that is wrong usage.
    bool lastWins = false;
    EachOutput each = {};
    LossPolicy losses = {};
    /// Receives the settings of each exporter as text before it runs; may be empty.
    std::function<void(const std::string& settings)> showSettings = {};
};

} // namespace Tidewatch
