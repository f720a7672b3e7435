// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace Tidewatch {

/// How cells of lattices are converted to points.
struct CellOptions {
    /// The field whose values become heights: its name, or a number N for the field "BandN" or else for the
    /// Nth numeric field in order of names.
    std::string heights = "1";
};

} // namespace Tidewatch
