// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/ReadOptions.hpp"
#include "sheaf/Bundle.hpp"

#include <functional>
#include <string>

namespace Tidewatch {

/// The grid made from a file that states neither times nor grids: named after the file, in the slice at
/// ReadOptions::SliceTime, with the standard chart and one vertex skeleton without refinement.
struct SingleGrid {
    Sheaf::Grid& grid;
    /// The standard chart.
    Sheaf::CartesianChart& chart;
    /// The representation of the vertices in the standard chart.
    Sheaf::Representation& vertices;
};

/// Adds such a grid and lets `fill` give it fields and fragments. What `fill` throws passes through, and the
/// bundle is then as it was before. Throws Anchor::FormatError for a path whose name cannot be a grid's,
/// Anchor::ModelError for a grid that is there already. Returns the grid's name.
std::string addSingleGrid(Sheaf::Bundle& bundle, const std::string& path, const ConvLib::ReadOptions& options,
                          const std::function<void(const SingleGrid&)>& fill);

} // namespace Tidewatch
