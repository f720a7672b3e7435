// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/BasicConverterDefs.hpp"
#include "geom/MultiRange.hpp"

#include <array>
#include <charconv>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

/// Parsing of option values. Independent of the locale.
namespace Tidewatch {

/// A whole text as a decimal number; nullopt if it is anything else, does not fit T, or is NaN.
template <class T>
requires std::integral<T> || std::floating_point<T>
[[nodiscard]] std::optional<T> parseNumber(std::string_view text) {
    T value{};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end)
        return std::nullopt;
    if constexpr (std::floating_point<T>) {
        if (std::isnan(value))
            return std::nullopt;
    }
    return value;
}

/// The text itself.
[[nodiscard]] std::optional<std::string> anyText(std::string_view text);

[[nodiscard]] std::optional<double> finiteNumber(std::string_view text);

/// A number of 1 or more.
[[nodiscard]] std::optional<std::uint64_t> positiveCount(std::string_view text);

/// A number of bytes: digits, and optionally one of K, M, G, T (powers of 1024; either case). Nullopt for any
/// other text and for more than 64 bits.
[[nodiscard]] std::optional<std::uint64_t> parseByteSize(std::string_view text);

/// "MIN:MAX", or one value that is both. Nullopt for any other text and for MIN above MAX.
[[nodiscard]] std::optional<ConvLib::BasicConverterDefs::TimeRange> parseTimeRange(std::string_view text);

/// "A:B,C,...": ranges and single values. Nullopt for any other text and for A above B.
[[nodiscard]] std::optional<std::vector<Geom::MultiRange<double>::Range>> parseRanges(std::string_view text);

/// "X,Y,Z", or one number for all three; finite. Nothing for any other text.
[[nodiscard]] std::optional<std::array<double, 3>> parseTriple(std::string_view text);

/// The same, all of them greater than 0.
[[nodiscard]] std::optional<std::array<double, 3>> parseSteps(std::string_view text);

} // namespace Tidewatch
