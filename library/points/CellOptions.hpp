// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace Tidewatch {

/// How cells of lattices become points.
struct CellOptions {
    /// The field whose values become heights: its name, or a number N for the field "BandN", else for the Nth field of
    /// numbers by name.
    std::string heights = "1";
};

} // namespace Tidewatch
