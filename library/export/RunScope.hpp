// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/input/Filters.hpp"
#include "library/input/Inputs.hpp"
#include "library/output/OutputPattern.hpp"

#include <optional>
#include <string>
#include <vector>

namespace Tidewatch {

/// What one run of an exporter exports, and where its output goes.
struct RunScope {
    /// The only time or grid of the run; nullopt means all that the filters let pass.
    std::optional<double> time;
    std::optional<std::string> grid;
    std::string output;

    [[nodiscard]] bool admits(double runTime) const { return !time || *time == runTime; }
    [[nodiscard]] bool admits(const std::string& runGrid) const { return !grid || *grid == runGrid; }
};

/// The runs that an output pattern requires: one, or one for each selected grid, square, time, or combination of
/// them, in the order of the bundle. Throws Anchor::FileError if two runs have the same output, and what
/// OutputPattern::fill() throws.
[[nodiscard]] std::vector<RunScope> planRuns(const OutputPattern& pattern, const Selection& selection,
                                             const Inputs& inputs);

} // namespace Tidewatch
