// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "pcd/heightQuantiles.hpp"

namespace ExportLib {

/// The normalised intensity and the colour of the points of one cloud.
///
/// The colour is the average of a ramp over the height and of the intensity as a grey level. The ramp runs
/// from blue at the low height over yellow half way to green at the high height.
class PointShading {
public:
    /// Heights between which the ramp runs, in coordinate units, and the least and greatest intensity.
    PointShading(const HeightQuantiles& heights, unsigned short leastIntensity,
                 unsigned short greatestIntensity) noexcept;

    /// The intensity from 0 (least) to 1 (greatest); not a number where all intensities are equal.
    [[nodiscard]] float intensity(unsigned short value) const noexcept {
        return static_cast<float>(value - leastIntensity_) * intensityScale_;
    }

    /// The colour at a height for a normalised intensity, packed as PCD stores it: the bits 0x00RRGGBB of a
    /// float.
    [[nodiscard]] float color(double height, float intensity) const noexcept;

private:
    double lowHeight_;
    double heightScale_;
    int leastIntensity_;
    float intensityScale_;
};

} // namespace ExportLib
