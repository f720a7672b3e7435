// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "geom/PhysicalSpace.hpp"
#include "pcd/inBlocks.hpp"

#include <vector>

namespace ExportLib {

/// Heights with about 5 % of the points below and above them, in coordinate units.
struct HeightQuantiles {
    double low = 0.0;
    double high = 0.0;
};

/// The entries k and 19 * k, counted from 0, of the z coordinates in ascending order, where k is a twentieth
/// of their number, rounded down. Fewer than 20 points give the lowest height twice. NaN heights are ordered
/// after all others. Without points both heights are 0.
///
/// Cost: linear on average, and up to 8 bytes per point; there is no full sort. Calls `mayGoOn` throughout; workers, if there are
/// any, help.
[[nodiscard]] HeightQuantiles heightQuantiles(const std::vector<Geom::PhysicalSpace::point>& points,
                                              const StopQuestion& mayGoOn = {},
                                              Anchor::Workers* workers = nullptr);

} // namespace ExportLib
