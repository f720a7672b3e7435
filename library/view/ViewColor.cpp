// SPDX-License-Identifier: Apache-2.0
#include "library/view/ViewColor.hpp"

#include <algorithm>
#include <cassert>
#include <cstddef>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

// From water through lowland greens and sand to rock and snow.
constexpr ViewColor heightColors[] = {{34, 48, 110},  {44, 127, 176}, {108, 195, 165}, {232, 227, 160},
                                      {213, 154, 84}, {140, 74, 47},  {245, 240, 238}};
constexpr ViewColor intensityColors[] = {{13, 13, 13}, {247, 247, 247}};
// Lightness rises evenly, so that it can be read in grey, too.
constexpr ViewColor scalarColors[] = {{29, 17, 71},  {106, 31, 122},  {182, 54, 121},
                                      {241, 96, 93}, {254, 174, 119}, {252, 253, 191}};
constexpr ViewColor stepColors[] = {{44, 127, 184}, {240, 160, 48}, {200, 61, 90}, {98, 60, 140}};

constexpr ColorRamp ramps[] = {{"height", heightColors},
                               {"intensity", intensityColors},
                               {"scalar", scalarColors},
                               {"steps", stepColors}};

} // namespace

std::string colorText(const ViewColor& color) {
    return fmt::format("#{:02x}{:02x}{:02x}", color[0], color[1], color[2]);
}

ViewColor ColorRamp::at(double share) const {
    const double place = (share > 0 ? std::min(share, 1.0) : 0.0) * static_cast<double>(colors.size() - 1);
    const auto first = std::min(static_cast<std::size_t>(place), colors.size() - 2);
    const double rest = place - static_cast<double>(first);
    ViewColor color{};
    for (std::size_t part = 0; part < color.size(); ++part) {
        const double a = colors[first][part];
        const double b = colors[first + 1][part];
        color[part] = static_cast<std::uint8_t>(a + (b - a) * rest + 0.5);
    }
    return color;
}

std::span<const ColorRamp> colorRamps() noexcept {
    return ramps;
}

const ColorRamp& colorRamp(std::string_view name) noexcept {
    const auto* const found = std::find_if(std::begin(ramps), std::end(ramps),
                                           [&](const ColorRamp& ramp) { return ramp.name == name; });
    assert(found != std::end(ramps));
    return *found;
}

} // namespace Tidewatch
