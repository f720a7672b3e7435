// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/input/Filters.hpp"

#include <string>

namespace Tidewatch {

/// How several inputs are merged into one grid.
struct MergeOptions {
    std::string gridName = "merged";
    /// The times and grids to merge; all others are left out.
    Filters selected = {};
};

} // namespace Tidewatch
