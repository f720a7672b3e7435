// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/BasicConverterDefs.hpp"
#include "geom/MultiRange.hpp"
#include "library/points/PointChoice.hpp"

#include <array>
#include <charconv>
#include <cmath>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

/// Parsing of option values. Independent of the locale.
namespace Tidewatch {

/// What is wrong with the value of an option, without the option's name and the value itself.
class InvalidValue final : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

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

/// Comma-separated values, each parsed by `parse`; nullopt if `parse` returns nullopt for one of them.
template <class Parse>
[[nodiscard]] auto parseList(std::string_view text, Parse parse) {
    using Value = typename decltype(parse(text))::value_type;
    std::optional<std::vector<Value>> values(std::in_place);
    for (;;) {
        const std::size_t comma = text.find(',');
        const auto value = parse(text.substr(0, comma));
        if (!value)
            return std::optional<std::vector<Value>>();
        values->push_back(*value);
        if (comma == std::string_view::npos)
            return values;
        text.remove_prefix(comma + 1);
    }
}

/// "MIN:MAX", or one value that is both. Nullopt for any other text. Throws InvalidValue for MIN above MAX.
[[nodiscard]] std::optional<ConvLib::BasicConverterDefs::TimeRange> parseTimeRange(std::string_view text);

/// "A:B,C,...": ranges and single values. Nullopt for any other text. Throws InvalidValue for A above B.
[[nodiscard]] std::optional<std::vector<Geom::MultiRange<double>::Range>> parseRanges(std::string_view text);

/// "X,Y,Z", or one number for all three; finite. Nothing for any other text.
[[nodiscard]] std::optional<std::array<double, 3>> parseTriple(std::string_view text);

/// The same, all of them greater than 0.
[[nodiscard]] std::optional<std::array<double, 3>> parseSteps(std::string_view text);

/// A finite number greater than 0.
[[nodiscard]] std::optional<double> positiveNumber(std::string_view text);

/// "XMIN,YMIN,XMAX,YMAX[,ZMIN,ZMAX]". Nothing for any other text. Throws InvalidValue if a minimum is not
/// below its maximum.
[[nodiscard]] std::optional<PointBox> parseBox(std::string_view text);

/// Comma-separated class numbers, 0 to 255.
[[nodiscard]] std::optional<std::set<std::uint8_t>> parseClasses(std::string_view text);

/// Comma-separated "first", "last", "only" and numbers from 1 to 15.
[[nodiscard]] std::optional<ReturnChoice> parseReturns(std::string_view text);

} // namespace Tidewatch
