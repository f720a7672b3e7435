// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>

namespace Tidewatch::Las {

/// One decoded point record, whatever its format. Parts that the format lacks are 0.
struct Point {
    /// Bits of `flags`, as formats 6 to 10 store them; formats 0 to 5 have no Overlap.
    enum Flag : std::uint8_t {
        Synthetic = 1,
        KeyPoint = 2,
        Withheld = 4,
        Overlap = 8,
    };

    std::int32_t x = 0; ///< stored integers; the header's scale and offset make them coordinates
    std::int32_t y = 0;
    std::int32_t z = 0;
    std::uint16_t intensity = 0;
    std::uint16_t pointSourceId = 0;
    std::uint8_t returnNumber = 0;
    std::uint8_t numberOfReturns = 0;
    std::uint8_t flags = 0;
    std::uint8_t scanDirection = 0;    ///< 0 or 1
    std::uint8_t edgeOfFlightLine = 0; ///< 0 or 1
    std::uint8_t classification = 0;   ///< 5 bits in formats 0 to 5, 8 bits in 6 to 10
    std::uint8_t userData = 0;
    std::uint8_t scannerChannel = 0;
    std::int16_t scanAngle = 0; ///< whole degrees in formats 0 to 5, steps of 0.006 degrees in 6 to 10
    std::uint16_t nearInfrared = 0;
    std::array<std::uint16_t, 3> rgb{};
    double gpsTime = 0.0;

    /// The extra bytes, as many as the header says; valid until the next point is decoded. Null without any.
    const std::uint8_t* extraBytes = nullptr;
};

} // namespace Tidewatch::Las
