// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/input/Filters.hpp"
#include "library/output/OutputPattern.hpp"
#include "sheaf/Bundle.hpp"

#include <optional>
#include <string>
#include <vector>

namespace Tidewatch {

/// What one run of an exporter takes, and where its output goes.
struct RunScope {
    /// The one time or grid of the run; nothing stands for all that the filters let pass.
    std::optional<double> time;
    std::optional<std::string> grid;
    std::string output;

    [[nodiscard]] bool admits(double runTime) const { return !time || *time == runTime; }
    [[nodiscard]] bool admits(const std::string& runGrid) const { return !grid || *grid == runGrid; }
};

/// The runs that an output pattern asks for: one, or one for each chosen grid, time, or grid at a time, in
/// the order of the bundle. Throws Anchor::FileError when two runs come to one output, and what
/// OutputPattern::fill() throws.
[[nodiscard]] std::vector<RunScope> planRuns(const OutputPattern& pattern, const Selection& selection,
                                             const Sheaf::Bundle& bundle);

} // namespace Tidewatch
