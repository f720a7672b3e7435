// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/input/Filters.hpp"
#include "sheaf/Bundle.hpp"

#include <string>

namespace Tidewatch {

/// The coordinate systems and units of the grids in a view.
struct ViewSystem {
    /// The coordinate reference systems, each once; empty if none is stated.
    std::string title;
    /// The unit of coordinates, such as "m"; empty if it is unknown or differs between grids.
    std::string unit;
};

[[nodiscard]] ViewSystem viewSystem(const Sheaf::Bundle& bundle, const Selection& selection);

} // namespace Tidewatch
