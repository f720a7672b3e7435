// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "geom/PhysicalSpace.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace Tidewatch {

/// A survey seen from above: the highest point of each pixel, with a value.
class Relief {
public:
    /// The area covered by the pixels: `lowerX` and `lowerY` are its lower left corner, `edge` is the size of
    /// a pixel.
    struct Area {
        double lowerX = 0;
        double lowerY = 0;
        double edge = 1;
        std::uint32_t width = 1;
        std::uint32_t height = 1;
    };

    explicit Relief(const Area& area);

    /// Adds a point with a value of any 32 bits.
    void take(double x, double y, double z, std::uint32_t value) {
        const double column = (x - area_.lowerX) * perUnit_;
        const double row = (y - area_.lowerY) * perUnit_;
        // Also skips NaN.
        if (!(column >= 0 && row >= 0 && column < area_.width && row < area_.height))
            return;
        const std::size_t at = static_cast<std::size_t>(row) * area_.width + static_cast<std::size_t>(column);
        const double above = z - zero_;
        // Skips NaN and absurd heights, which would exceed the range of floats.
        if (!(above > -highest && above < highest))
            return;
        const auto height = static_cast<float>(above);
        if (height > heights_[at]) {
            heights_[at] = height;
            values_[at] = value;
        }
    }

    /// The height to which stored heights are relative; set it before the first point.
    void setZero(double height) noexcept { zero_ = height; }
    [[nodiscard]] double zero() const noexcept { return zero_; }

    [[nodiscard]] const Area& area() const noexcept { return area_; }

    /// Fills empty pixels from the nearest other pixel up to `reach` pixels away.
    void closeGaps(unsigned reach);

    /// Whether a pixel (counted from the lower left one) has a point.
    [[nodiscard]] bool isThere(std::size_t pixel) const { return heights_[pixel] > nothing; }
    [[nodiscard]] double height(std::size_t pixel) const {
        return static_cast<double>(heights_[pixel]) + zero_;
    }
    [[nodiscard]] std::uint32_t value(std::size_t pixel) const { return values_[pixel]; }
    [[nodiscard]] std::size_t size() const noexcept { return heights_.size(); }

    /// The illumination (0 to 1) of a pixel from the north-west at 45 degrees, with heights multiplied by
    /// `stretch`.
    [[nodiscard]] double light(std::uint32_t column, std::uint32_t row, double stretch) const;

private:
    static constexpr double highest = 1e30;
    static constexpr float nothing = -3.0e38F;

    Area area_;
    double perUnit_;
    double zero_ = 0;
    std::vector<float> heights_;
    std::vector<std::uint32_t> values_;
};

} // namespace Tidewatch
