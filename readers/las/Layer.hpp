// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace Tidewatch::Las {

/// The streams of a chunk of layered compression (formats 6 to 10) that can be decoded or skipped, as bits; the numbers
/// are those of LASzip's selective decompression. X, Y, return numbers and scanner channels are always decoded, and so
/// are extra bytes beyond the first 16.
namespace Layer {
enum : std::uint32_t {
    Always = 0,
    Z = 1U << 0,
    Classification = 1U << 1,
    Flags = 1U << 2, ///< classification flags, scan direction and edge of flight line
    Intensity = 1U << 3,
    ScanAngle = 1U << 4,
    UserData = 1U << 5,
    PointSource = 1U << 6,
    GpsTime = 1U << 7,
    Rgb = 1U << 8,
    NearInfrared = 1U << 9,
    FirstExtraByte = 1U << 16,
};
} // namespace Layer

/// A set of layers.
using Layers = std::uint32_t;

constexpr Layers allLayers = ~Layers{0};

/// The layers of some extra bytes of a point.
[[nodiscard]] constexpr Layers extraByteLayers(std::size_t offset, std::size_t size) noexcept {
    constexpr std::size_t selectable = 16;
    Layers layers = 0;
    for (std::size_t i = offset; i < std::min(offset + size, selectable); ++i)
        layers |= Layers{Layer::FirstExtraByte} << i;
    return layers;
}

} // namespace Tidewatch::Las
