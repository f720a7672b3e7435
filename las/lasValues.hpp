// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <cstdint>

/// How values become the numbers of LAS records. Where C++ leaves a conversion undefined, results are those
/// that every processor gives or that the rest of the project has: see each function.
namespace ExportLib {

/// The low 32 bits of the integer part of a number: coordinates beyond 32 bits wrap. What is not a number,
/// infinite or beyond 64 bits gives 0.
[[nodiscard]] inline std::int32_t integerPart(double value) noexcept {
    constexpr double limit = 9223372036854775808.0; // 2^63
    if (!(value >= -limit && value < limit))
        return 0;
    return static_cast<std::int32_t>(static_cast<std::int64_t>(value));
}

/// The integer that stands for a coordinate: the distance from the offset in steps of `scale`, rounded half
/// away from zero.
///
/// The distance is divided, never multiplied by the reciprocal: 2.499875 at offset 2 and scale 0.00025 lies a
/// hair below 1999.5 steps that way and becomes 1999, and files are compared byte by byte.
[[nodiscard]] inline std::int32_t quantizedCoordinate(double coordinate, double offset,
                                                      double scale) noexcept {
    const double steps = (coordinate - offset) / scale;
    return integerPart(coordinate >= offset ? steps + 0.5 : steps - 0.5);
}

/// The low 16 bits of the integer part: values that do not fit wrap. Beyond 32 bits, and for what is not a
/// number, 0.
[[nodiscard]] inline std::uint16_t lowBits(float value) noexcept {
    constexpr float limit = 2147483648.0F; // 2^31
    if (!(value >= -limit && value < limit))
        return 0;
    return static_cast<std::uint16_t>(static_cast<std::int32_t>(value));
}

/// -25 to 5 becomes 0 to 65520; the attribute's scale and offset say so in the file. Single precision
/// throughout.
[[nodiscard]] inline std::uint16_t rawReflectance(float value) noexcept {
    return lowBits(std::round((value + 25.0F) * 2184.0F));
}

[[nodiscard]] inline std::uint16_t rawAmplitude(float value) noexcept {
    return lowBits(value);
}

} // namespace ExportLib
