// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

#include <algorithm>
#include <charconv>
#include <concepts>
#include <cstddef>
#include <limits>
#include <span>

/// Conversion of numbers to text, for every exporter that writes text.
///
/// Each function writes to `out` and returns the end of the text; nothing is terminated by a null character.
/// The text is what printf writes in the C locale with rounding to nearest (ties of the exact binary value go
/// to the even digit), whatever locale or rounding mode the host has set. Infinities and NaN are "inf",
/// "-inf", "nan", "-nan".
///
/// The caller provides space of the matching ...TextSize. It includes some bytes of slack after the text,
/// which a call may overwrite because digits are stored eight at a time.
///
/// Cost: 5 to 15 ns per number if 128-bit integer arithmetic is certain of the rounding, which is nearly
/// always the case for up to 17 significant digits (general) and for values below 2^63 / 10^decimals (fixed).
/// The rest goes through std::to_chars, which is several times slower.
namespace ConvLib {

/// A double has at most 767 significant decimal digits; a higher precision changes nothing in general
/// notation.
inline constexpr int maxGeneralPrecision = 767;

/// Space that an integer of any type needs.
inline constexpr std::size_t integerTextSize = 20;

/// The significant digits that a C++ stream of this precision writes in general notation: 0 counts as 1, a
/// negative precision as 6, and more than maxGeneralPrecision as maxGeneralPrecision.
constexpr int effectivePrecision(int precision) noexcept {
    return precision < 0 ? 6 : std::clamp(precision, 1, maxGeneralPrecision);
}

/// Space that appendGeneral needs: digits, sign, "0.000" before them or an exponent after them, and slack.
constexpr std::size_t generalTextSize(int precision) noexcept {
    return static_cast<std::size_t>(effectivePrecision(precision)) + 32;
}

/// Space that appendFixed needs for a value of type T: digits before the point, decimals, sign, point, and
/// slack.
template <std::floating_point T>
constexpr std::size_t fixedTextSize(int decimals) noexcept {
    const auto whole = static_cast<std::size_t>(std::numeric_limits<T>::max_exponent10) + 1;
    return whole + static_cast<std::size_t>(decimals < 0 ? 6 : decimals) + 32;
}

/// Writes a value as a C++ stream of the given precision does in its default notation, which is printf's
/// "%.{precision}g": that many significant digits (see effectivePrecision) without trailing zeros, in
/// exponent form if the exponent is below -4 or not below the precision.
TIDEWATCH_API char* appendGeneral(char* out, double value, int precision) noexcept;

/// Writes values as appendGeneral does, with one blank between neighbours and none after the last; needs
/// generalTextSize(precision) for each. Faster than writing the values one by one.
TIDEWATCH_API char* appendGeneralRow(char* out, std::span<const double> values, int precision) noexcept;

/// Writes a value as printf's "%.{decimals}f" does; a negative number of decimals counts as 6.
TIDEWATCH_API char* appendFixed(char* out, double value, int decimals) noexcept;

/// Writes a value as printf's "%.{decimals}Lf" does; a negative number of decimals counts as 6.
TIDEWATCH_API char* appendFixed(char* out, long double value, int decimals) noexcept;

/// A float has the text of the double of the same value.
inline char* appendGeneral(char* out, float value, int precision) noexcept {
    return appendGeneral(out, static_cast<double>(value), precision);
}

/// A float has the text of the double of the same value.
inline char* appendFixed(char* out, float value, int decimals) noexcept {
    return appendFixed(out, static_cast<double>(value), decimals);
}

/// Writes an integer in decimal; a character type is written as its number, bool as 0 or 1.
template <std::integral T>
char* appendInteger(char* out, T value) noexcept {
    if constexpr (sizeof(T) < sizeof(int))
        return std::to_chars(out, out + integerTextSize, static_cast<int>(value)).ptr;
    else
        return std::to_chars(out, out + integerTextSize, value).ptr;
}

} // namespace ConvLib
