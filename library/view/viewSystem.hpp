// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/input/Filters.hpp"
#include "sheaf/Bundle.hpp"

#include <string>

namespace Tidewatch {

/// What a view says about the coordinates of the grids that it shows.
struct ViewSystem {
    /// The coordinate reference systems, each once; empty where none is stated.
    std::string title;
    /// The unit of coordinates, such as "m"; empty where it is not known or grids differ in it.
    std::string unit;
};

[[nodiscard]] ViewSystem viewSystem(const Sheaf::Bundle& bundle, const Selection& selection);

} // namespace Tidewatch
