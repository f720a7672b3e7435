// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace Tidewatch {

/// A colour of a view: red, green, blue.
using ViewColor = std::array<std::uint8_t, 3>;

/// "#rrggbb".
[[nodiscard]] std::string colorText(const ViewColor& color);

/// Equidistant colours from low to high.
struct ColorRamp {
    std::string_view name;
    std::span<const ViewColor> colors;

    /// The interpolated colour at `share`, 0 to 1; NaN counts as 0.
    [[nodiscard]] ViewColor at(double share) const;
};

/// The ramps of views: "height", "intensity", "scalar" and "steps" (for numbers of returns).
[[nodiscard]] std::span<const ColorRamp> colorRamps() noexcept;

/// One of them by its name.
[[nodiscard]] const ColorRamp& colorRamp(std::string_view name) noexcept;

} // namespace Tidewatch
