// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "library/input/Filters.hpp"
#include "library/input/Inputs.hpp"
#include "library/output/OutputPattern.hpp"
#include "sheaf/Bundle.hpp"

#include <string>
#include <vector>

namespace Tidewatch {

/// What one run of an exporter exports, and where its output goes.
struct RunScope {
    /// The slices and grids of the run; the filters apply to them.
    Anchor::StrongPtr<Sheaf::Bundle> bundle;
    std::string output;
};

/// The runs that an output pattern requires: one, or one for each selected grid, square, time, or combination of
/// them, in the order of the bundle. Throws Anchor::FileError if two runs have the same output, and what
/// OutputPattern::fill() throws.
[[nodiscard]] std::vector<RunScope> planRuns(const OutputPattern& pattern, const Selection& selection,
                                             const Inputs& inputs);

} // namespace Tidewatch
