// SPDX-License-Identifier: Apache-2.0
#include "pcd/PointShading.hpp"

#include <bit>
#include <cstdint>

namespace ExportLib {

// Both scales are reciprocals that multiply, the intensity's in single precision: a division would round some
// values differently, and files are compared byte by byte.
PointShading::PointShading(const HeightQuantiles& heights, unsigned short minIntensity,
                           unsigned short maxIntensity) noexcept
    : lowHeight_(heights.low),
      heightScale_(1.0 / (heights.high - heights.low)),
      minIntensity_(minIntensity),
      intensityScale_(1.0F / static_cast<float>(maxIntensity - minIntensity)) {}

float PointShading::color(double height, float intensity) const noexcept {
    double t = (height - lowHeight_) * heightScale_;
    int green = 255;
    int blue = 0;
    // Written so that NaN takes the first branch.
    if (!(t < 1.0)) {
        t = 1.0;
    } else if (t <= 0.0) {
        t = 0.0;
        green = 0;
        blue = 255;
    } else if (t < 0.5) {
        green = static_cast<int>(510.0 * t);
        blue = 255 - green;
    }
    int red = green;
    if (t > 0.5)
        red -= static_cast<int>((t - 0.5) * 510.0);

    // Equal intensities normalise to NaN, whose grey level is 0; everything else is in 0 to 255.
    const double level = static_cast<double>(intensity) * 255.0;
    const int grey = level >= 0.0 && level < 256.0 ? static_cast<int>(level) : 0;

    const auto mix = [grey](int channel) { return static_cast<std::uint32_t>((channel + grey) / 2); };
    return std::bit_cast<float>(mix(red) << 16 | mix(green) << 8 | mix(blue));
}

} // namespace ExportLib
