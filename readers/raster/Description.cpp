// SPDX-License-Identifier: Apache-2.0
#include "readers/raster/Description.hpp"

#include "anchor/Error.hpp"
#include "anchor/printable.hpp"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace Tidewatch::Raster {

namespace {

/// The lowest coordinate of a pixel's centre along an axis.
double lowestCentre(double start, double step, double count) {
    return start + (step > 0 ? 0.5 : count - 0.5) * step;
}

} // namespace

Placing Placing::make(const std::optional<std::array<double, 6>>& transform, std::uint64_t width,
                      std::uint64_t height, const std::string& path) {
    const auto columns = static_cast<double>(width);
    const auto rows = static_cast<double>(height);
    if (!transform)
        return {{0.5, 0.5, 0}, {1, 1, 1}, false, true};

    const auto& t = *transform;
    const bool isSound = std::all_of(t.begin(), t.end(), [](double number) { return std::isfinite(number); });
    if (!isSound || t[1] == 0 || t[5] == 0) {
        // A raster rotated by 90 degrees has these two zeros as well.
        if (isSound && t[2] != 0 && t[4] != 0)
            throw Anchor::FormatError(fmt::format("{}: is a rotated raster", Anchor::printable(path)));
        throw Anchor::FormatError(
            fmt::format("{}: its georeference gives its pixels no size ({}, {}, {}, {}, {}, {})",
                        Anchor::printable(path), t[0], t[1], t[2], t[3], t[4], t[5]));
    }
    // Computed transforms may have rounding errors in place of zeros.
    constexpr double tolerance = 1e-3; // of a pixel
    if (std::abs(t[2]) * rows > tolerance * std::abs(t[1]) ||
        std::abs(t[4]) * columns > tolerance * std::abs(t[5]))
        throw Anchor::FormatError(fmt::format("{}: is a rotated raster", Anchor::printable(path)));
    const Geom::PhysicalSpace::point corner{lowestCentre(t[0], t[1], columns), lowestCentre(t[3], t[5], rows),
                                            0};
    if (!std::isfinite(corner.x) || !std::isfinite(corner.y))
        throw Anchor::FormatError(fmt::format(
            "{}: its georeference places its pixels beyond the range of numbers", Anchor::printable(path)));
    return {corner, {std::abs(t[1]), std::abs(t[5]), 1}, t[1] < 0, t[5] < 0};
}

} // namespace Tidewatch::Raster
