// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "geom/PhysicalSpace.hpp"

#include <cstdint>
#include <span>
#include <vector>

namespace Tidewatch {

/// Random bits for a number, the same everywhere.
[[nodiscard]] std::uint64_t scrambled(std::uint64_t number) noexcept;

/// Chooses at most `wanted` of the points so that they show the place as all of them would: one of each of the cubic cells
/// of the coarsest size that has as many, and those of which `isKept` says so. `isKept` is empty or has an entry a point.
///
/// Gives indexes in an order in which neighbours in space follow each other. Points whose coordinates are not finite are
/// never chosen. Cost: some hundred nanoseconds a point.
[[nodiscard]] std::vector<std::uint32_t> chooseByCells(std::span<const Geom::PhysicalSpace::point> points,
                                                       std::uint64_t wanted, const std::vector<bool>& isKept);

} // namespace Tidewatch
