// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ascii/AsciiPlan.hpp"
#include "convlib/LineWriter.hpp"
#include "sheaf/ElementTypes.hpp"

#include <algorithm>
#include <concepts>
#include <limits>
#include <type_traits>

namespace ExportLib {

/// A single number, as opposed to the components of a point, a vector or a colour.
template <class T>
concept Scalar = std::is_arithmetic_v<T>;

/// The default number of decimals.
inline constexpr unsigned int defaultDecimals = AsciiPlan::coordinateDecimals;

/// The decimals of floating-point numbers for a precision.
[[nodiscard]] constexpr unsigned int decimalsFor(unsigned int precision) noexcept {
    return precision == 0 ? defaultDecimals : precision;
}

/// Appends a blank and a number: with `precision` decimals, or six if the precision is 0.
template <std::floating_point T>
void toText(ConvLib::LineText& line, T value, unsigned int precision) {
    constexpr unsigned int max = std::numeric_limits<int>::max();
    line.character(' ');
    line.fixed(value, static_cast<int>(std::min(decimalsFor(precision), max)));
}

/// Appends a blank and an integer in decimal. The precision only matters for bytes: unless it is 0, a byte
/// becomes the character of that code. Such grid files exist, and their readers rely on it.
template <std::integral T>
void toText(ConvLib::LineText& line, T value, unsigned int precision) {
    line.character(' ');
    if (std::is_same_v<T, unsigned char> && precision != 0)
        line.character(static_cast<char>(value));
    else
        line.integer(value);
}

/// Appends an element in its default form: a blank and the number, or a blank and the component for each
/// component.
template <Scalar T>
void elementText(ConvLib::LineText& line, T value) {
    toText(line, value, 0);
}

inline void elementText(ConvLib::LineText& line, const Sheaf::Element::Color& color) {
    for (const unsigned char channel : color)
        toText(line, channel, 0);
}

template <class T>
requires requires(const T& element) {
    element.x;
    element.y;
    element.z;
}
void elementText(ConvLib::LineText& line, const T& element) {
    toText(line, element.x, 0);
    toText(line, element.y, 0);
    toText(line, element.z, 0);
}

} // namespace ExportLib
