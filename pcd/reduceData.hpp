// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "geom/PhysicalSpace.hpp"
#include "pcd/inBlocks.hpp"

#include <cstdint>
#include <vector>

namespace ExportLib {

/// The cell number of a coordinate: (value - origin) / cellSize without its fraction, as an unsigned 64-bit
/// number.
///
/// Negative quotients are truncated toward zero, too, and become the two's complement of their magnitude. A
/// quotient that is NaN, infinite or beyond 64 bits gives 0; so with a cell size of 0 every coordinate does.
/// Nothing else depends on the cell size being positive.
[[nodiscard]] inline unsigned long long quant(double value, double origin, double cellSize) noexcept {
    const double quotient = (value - origin) / cellSize;
    if (quotient >= -0x1p63 && quotient < 0x1p63)
        return static_cast<unsigned long long>(static_cast<long long>(quotient));
    if (quotient >= 0x1p63 && quotient < 0x1p64)
        return static_cast<unsigned long long>(static_cast<long long>(quotient - 0x1p63)) + (1ULL << 63);
    return 0;
}

/// The indices of the points that remain when a cloud is thinned to one point per cubic cell.
///
/// The key of a point's cell is the triple of its cell numbers along x, y and z, each narrowed to its low 32
/// bits and interpreted as signed: cells that are 2^32 apart share a key. The result has one entry for each
/// key that occurs, in lexicographic order of the keys.
///
/// If there is an intensity for every point, the brightest point of a cell remains, the first of equally
/// bright ones. Otherwise the first point of each cell remains. A cell whose intensities are all 0 yields
/// index 0, the first point of the cloud, whichever cell that is in; several such cells yield it several
/// times.
///
/// Coordinates and cell sizes may have any value, see quant; a cell size of 0 gives one cell. `upper` is not
/// used. Throws std::length_error or std::bad_alloc if there is not enough memory.
///
/// Cost: linear in the points unless their cells span more than 32 bits, then n log n; up to 20 bytes per
/// point besides the arguments, including the result (32 for more than 2^32 points).
[[nodiscard]] std::vector<unsigned long long>
reduceData(double cellSize, const std::vector<Geom::PhysicalSpace::point>& points,
           const std::vector<unsigned short>& intensities, const Geom::PhysicalSpace::point& origin,
           const Geom::PhysicalSpace::point& upper);

/// The same, calling `mayGoOn` throughout; workers, if there are any, work on blocks of points.
[[nodiscard]] std::vector<unsigned long long>
reduceData(double cellSize, const std::vector<Geom::PhysicalSpace::point>& points,
           const std::vector<unsigned short>& intensities, const Geom::PhysicalSpace::point& origin,
           const Geom::PhysicalSpace::point& upper, const StopQuestion& mayGoOn,
           Anchor::Workers* workers = nullptr);

} // namespace ExportLib
