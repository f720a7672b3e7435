// SPDX-License-Identifier: Apache-2.0
#include "library/points/TileOptions.hpp"
#include "library/report/UsageError.hpp"

#include <cmath>

#include <fmt/format.h>

namespace Tidewatch {

TileLayout::TileLayout(double size, const std::array<double, 2>& origin) : size_(size), origin_(origin) {
    if (!std::isfinite(size) || !(size > 0))
        throw UsageError("--tile-size takes a number above 0");
    if (!std::isfinite(origin[0]) || !std::isfinite(origin[1]))
        throw UsageError("--tile-origin takes two finite numbers");
}

std::int64_t TileLayout::cell(double value, double origin) const noexcept {
    auto number = static_cast<std::int64_t>(std::floor((value - origin) / size_));
    // The quotient is rounded; the edges, which give the squares their names, decide.
    while (value < edge(number, origin))
        --number;
    while (value >= edge(number + 1, origin))
        ++number;
    return number;
}

bool TileLayout::isCountable(double value, double origin) const noexcept {
    // Far below 2^53, so that neighbouring edges differ. NaN gives false.
    constexpr double most = 0x1p45;
    return std::fabs((value - origin) / size_) < most && std::fabs(value) < size_ * most;
}

std::string TileLayout::name(const Tile& tile) const {
    const auto [x, y] = corner(tile);
    // Without the sign of a zero.
    return fmt::format("{}_{}", x + 0.0, y + 0.0);
}

} // namespace Tidewatch
