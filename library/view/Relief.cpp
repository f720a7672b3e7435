// SPDX-License-Identifier: Apache-2.0
#include "library/view/Relief.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace Tidewatch {

Relief::Relief(const Area& area)
    : area_(area),
      perUnit_(1 / area.edge),
      heights_(std::size_t{area.width} * area.height, nothing),
      values_(heights_.size()) {}

void Relief::closeGaps(unsigned reach) {
    constexpr std::array<std::pair<std::int64_t, std::int64_t>, 8> around{
        {{-1, 0}, {1, 0}, {0, -1}, {0, 1}, {-1, -1}, {1, -1}, {-1, 1}, {1, 1}}};
    const auto width = static_cast<std::int64_t>(area_.width);
    const auto height = static_cast<std::int64_t>(area_.height);
    struct Filling {
        std::size_t pixel;
        std::size_t source;
    };
    for (unsigned round = 0; round < reach; ++round) {
        // Pixels filled in a round must not be sources in the same round.
        std::vector<Filling> fillings;
        for (std::int64_t row = 0; row < height; ++row) {
            for (std::int64_t column = 0; column < width; ++column) {
                const auto pixel = static_cast<std::size_t>(row * width + column);
                if (isThere(pixel))
                    continue;
                for (const auto& [right, up] : around) {
                    if (column + right < 0 || column + right >= width || row + up < 0 || row + up >= height)
                        continue;
                    const auto source = static_cast<std::size_t>((row + up) * width + column + right);
                    if (isThere(source)) {
                        fillings.push_back({pixel, source});
                        break;
                    }
                }
            }
        }
        for (const auto& [pixel, source] : fillings) {
            heights_[pixel] = heights_[source];
            values_[pixel] = values_[source];
        }
    }
}

double Relief::light(std::uint32_t column, std::uint32_t row, double stretch) const {
    const std::size_t at = std::size_t{row} * area_.width + column;
    const auto slope = [&](bool hasBefore, bool hasAfter, std::size_t step) {
        const std::size_t before = hasBefore && isThere(at - step) ? at - step : at;
        const std::size_t after = hasAfter && isThere(at + step) ? at + step : at;
        const double steps = (before == at ? 0.0 : 1.0) + (after == at ? 0.0 : 1.0);
        return steps == 0
                   ? 0.0
                   : stretch *
                         (static_cast<double>(heights_[after]) - static_cast<double>(heights_[before])) /
                         (steps * area_.edge);
    };
    const double east = slope(column > 0, column + 1 < area_.width, 1);
    const double north = slope(row > 0, row + 1 < area_.height, area_.width);
    constexpr double up = 0x1.6a09e667f3bcdp-1; // the square root of one half
    return std::clamp((0.5 * east - 0.5 * north + up) / std::sqrt(1 + east * east + north * north), 0.0, 1.0);
}

} // namespace Tidewatch
