// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "geom/Coordinates.hpp"

namespace Geom {

/// The space of surveys: Cartesian, three-dimensional, in double precision.
using PhysicalSpace = Coordinates<Cartesian3D, double>;

} // namespace Geom
