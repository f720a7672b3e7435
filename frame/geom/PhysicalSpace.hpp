// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "geom/Coordinates.hpp"

namespace Geom {

/// The space that surveys live in: Cartesian, three-dimensional, in double precision.
using PhysicalSpace = Coordinates<Cartesian3D, double>;

} // namespace Geom
