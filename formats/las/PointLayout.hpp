// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>

namespace Formats::Las {

/// The offsets of the parts of a point record, in bytes from the start of the record; 0 means that the format
/// does not have the part.
struct PointLayout {
    std::uint16_t naturalSize; ///< bytes without extra bytes, which follow
    std::uint16_t gpsTime;
    std::uint16_t rgb;
    std::uint16_t nearInfrared;
    std::uint16_t wavePacket;
};

/// Point data record formats 0 to 10 (LAS 1.4 R15, tables of the point data record formats).
inline constexpr std::array<PointLayout, 11> pointLayouts{{
    {20, 0, 0, 0, 0},
    {28, 20, 0, 0, 0},
    {26, 0, 20, 0, 0},
    {34, 20, 28, 0, 0},
    {57, 20, 0, 0, 28},
    {63, 20, 28, 0, 34},
    {30, 22, 0, 0, 0},
    {36, 22, 30, 0, 0},
    {38, 22, 30, 36, 0},
    {59, 22, 0, 0, 30},
    {67, 22, 30, 36, 38},
}};

/// Formats 6 to 10 have 30 basic bytes with wider return numbers, classes and scan angles.
[[nodiscard]] constexpr bool isExtendedFormat(unsigned format) noexcept {
    return format >= 6;
}

} // namespace Formats::Las
