// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "sheaf/Bundle.hpp"

#include <cstdint>

namespace Tidewatch {

/// Options of the sample survey.
struct SampleOptions {
    /// Points of the full cloud of each time slice.
    std::uint64_t points = 200'000;
    /// The same seed gives the same survey, bit for bit, on every machine.
    std::uint64_t seed = 1;
};

/// A synthetic survey of a tidal coast for experiments: three time slices, 0, 3 and 6 hours after low water,
/// each with two grids.
///
/// "coast" is a laser scan from the air: four flight strips cut into fragments ("strip1-000", ...), with
/// every attribute of LAS points, at two refinement levels: all points at (1, 1, 1), an eighth of them at (0,
/// 0, 0). Points are in scan order and have up to three returns; water reflects at its surface, in shallow
/// places also at the bottom.
///
/// "elevation" is a lattice of 2 m by 2 m in two fragments that overlap by a column: Height (float, the
/// ground), WaterDepth (double) and CellType (0 outside the survey, 1 land, 2 dry flat or bed, 3 water).
///
/// Coordinates are UTM-like, in metres to the millimetre. Arrays are created on demand, one fragment at a
/// time, and belong to the memory cache, so a survey may be larger than memory.
[[nodiscard]] TIDEWATCH_API Anchor::StrongPtr<Sheaf::Bundle> makeSampleSurvey(const SampleOptions& options);

} // namespace Tidewatch
