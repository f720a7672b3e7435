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
    /// Heights between which the ramp runs, in coordinate units, and the smallest and largest intensity.
    PointShading(const HeightQuantiles& heights, unsigned short minIntensity,
                 unsigned short maxIntensity) noexcept;

    /// The intensity from 0 (smallest) to 1 (largest); NaN if all intensities are equal.
    [[nodiscard]] float intensity(unsigned short value) const noexcept {
        return static_cast<float>(value - minIntensity_) * intensityScale_;
    }

    /// The colour at a height for a normalised intensity, packed as PCD stores it: the bits 0x00RRGGBB of a
    /// float.
    [[nodiscard]] float color(double height, float intensity) const noexcept;

private:
    double lowHeight_;
    double heightScale_;
    int minIntensity_;
    float intensityScale_;
};

} // namespace ExportLib
