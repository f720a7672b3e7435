// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <cstdint>

/// Conversions of values to the numbers of LAS records. Where C++ leaves a conversion undefined, the result
/// is defined here: see each function.
namespace ExportLib {

/// Degrees (LAS 1.4 R15, "Scan Angle" of point formats 6 to 10).
inline constexpr double scanAngleStep = 0.006;

/// The low 32 bits of the integer part of a number: coordinates beyond 32 bits wrap. NaN, infinity and
/// numbers beyond 64 bits give 0.
[[nodiscard]] inline std::int32_t integerPart(double value) noexcept {
    if (std::abs(value) < 2147483648.0) // 2^31: the common case
        return static_cast<std::int32_t>(value);
    if (std::abs(value) < 9223372036854775808.0) // 2^63
        return static_cast<std::int32_t>(static_cast<std::int64_t>(value));
    return 0;
}

/// The number whose integer part is the nearest integer, halves rounded away from zero.
[[nodiscard]] inline double awayFromZero(double value) noexcept {
    return value + std::copysign(0.5, value);
}

/// The distance of a coordinate from the offset in steps of `scale`, which is positive.
///
/// Divides instead of multiplying by the reciprocal: 2.499875 at offset 2 and scale 0.00025 is slightly below
/// 1999.5 steps that way and becomes 1999, and files are compared byte by byte.
[[nodiscard]] inline double stepsFromOffset(double coordinate, double offset, double scale) noexcept {
    return (coordinate - offset) / scale;
}

/// The stored integer of a coordinate: its steps rounded, halves away from zero.
[[nodiscard]] inline std::int32_t quantizedSteps(double steps) noexcept {
    return integerPart(awayFromZero(steps));
}

/// The low 16 bits of the integer part: values that do not fit wrap. NaN and numbers beyond 32 bits give 0.
[[nodiscard]] inline std::uint16_t lowBits(double value) noexcept {
    return std::abs(value) < 2147483648.0 // 2^31
               ? static_cast<std::uint16_t>(static_cast<std::int32_t>(value))
               : std::uint16_t{0};
}

/// Maps -25 to 5 to 0 to 65520, which the attribute's scale and offset describe in the file. Computed in
/// single precision; the rounding in double precision is exact.
[[nodiscard]] inline std::uint16_t rawReflectance(float value) noexcept {
    const float scaled = (value + 25.0F) * 2184.0F;
    return lowBits(awayFromZero(static_cast<double>(scaled)));
}

[[nodiscard]] inline std::uint16_t rawAmplitude(float value) noexcept {
    return lowBits(static_cast<double>(value));
}

} // namespace ExportLib
