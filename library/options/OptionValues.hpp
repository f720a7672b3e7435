// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"
#include "convlib/BasicConverterDefs.hpp"
#include "geom/MultiRange.hpp"
#include "library/export/ExportOptions.hpp"
#include "library/points/PointChoice.hpp"
#include "library/view/viewPicture.hpp"

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

/// Option values as text, as users write them. Independent of the locale.
namespace Tidewatch {

/// What is wrong with the value of an option, without the option's name and the value itself.
class TIDEWATCH_API InvalidValue final : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    InvalidValue(const InvalidValue&) = default;
    InvalidValue& operator=(const InvalidValue&) = default;
    ~InvalidValue() override;
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
[[nodiscard]] TIDEWATCH_API std::optional<std::string> anyText(std::string_view text);

[[nodiscard]] TIDEWATCH_API std::optional<double> finiteNumber(std::string_view text);

/// A number of 1 or more.
[[nodiscard]] TIDEWATCH_API std::optional<std::uint64_t> positiveCount(std::string_view text);

/// A number of bytes: digits, and optionally one of K, M, G, T (powers of 1024; either case). Nullopt for any
/// other text and for more than 64 bits.
[[nodiscard]] TIDEWATCH_API std::optional<std::uint64_t> parseByteSize(std::string_view text);

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
[[nodiscard]] TIDEWATCH_API std::optional<ConvLib::BasicConverterDefs::TimeRange>
parseTimeRange(std::string_view text);

/// "A:B,C,...": ranges and single values. Nullopt for any other text. Throws InvalidValue for A above B.
[[nodiscard]] TIDEWATCH_API std::optional<std::vector<Geom::MultiRange<double>::Range>>
parseRanges(std::string_view text);

/// "X,Y,Z", or one number for all three; finite. Nothing for any other text.
[[nodiscard]] TIDEWATCH_API std::optional<std::array<double, 3>> parseTriple(std::string_view text);

/// The same, all of them greater than 0.
[[nodiscard]] TIDEWATCH_API std::optional<std::array<double, 3>> parseSteps(std::string_view text);

/// "X,Y"
[[nodiscard]] TIDEWATCH_API std::optional<std::array<double, 2>> parsePair(std::string_view text);

/// How many processors to use, 1 to 1024.
[[nodiscard]] TIDEWATCH_API std::optional<unsigned> parseJobs(std::string_view text);

/// "2/8": a part of several, from 1.
[[nodiscard]] TIDEWATCH_API std::optional<Part> parsePart(std::string_view text);

/// A finite number greater than 0.
[[nodiscard]] TIDEWATCH_API std::optional<double> positiveNumber(std::string_view text);

/// "XMIN,YMIN,XMAX,YMAX[,ZMIN,ZMAX]". Nothing for any other text. Throws InvalidValue if a minimum is not
/// below its maximum.
[[nodiscard]] TIDEWATCH_API std::optional<PointBox> parseBox(std::string_view text);

/// Comma-separated class numbers, 0 to 255.
[[nodiscard]] TIDEWATCH_API std::optional<std::set<std::uint8_t>> parseClasses(std::string_view text);

/// Comma-separated "first", "last", "only" and numbers from 1 to 15.
[[nodiscard]] TIDEWATCH_API std::optional<ReturnChoice> parseReturns(std::string_view text);

/// The minor version of LAS: "1.2", "1.3" or "1.4".
[[nodiscard]] TIDEWATCH_API std::optional<int> parseLasVersion(std::string_view text);

/// 0 to 65535.
[[nodiscard]] TIDEWATCH_API std::optional<int> parsePointSourceID(std::string_view text);

/// The LAS attributes that fields can become, by name.
[[nodiscard]] TIDEWATCH_API std::vector<std::string> attributeNames();

/// "FIELD=ATTRIBUTE"; the field's name may contain "=", too. Throws UsageError for an attribute that does not exist.
[[nodiscard]] TIDEWATCH_API std::optional<std::pair<std::string, std::string>>
parseRenaming(std::string_view text);

/// "WIDTHxHEIGHT" of a picture, within its limits.
[[nodiscard]] TIDEWATCH_API std::optional<ViewPictureOptions::Size> parsePictureSize(std::string_view text);

/// "height", "class", "intensity", "return" or "rgb".
[[nodiscard]] TIDEWATCH_API std::optional<ViewPictureOptions::Colors>
parsePictureColors(std::string_view text);

/// Whether a sandbox is required: "auto" or "require".
[[nodiscard]] TIDEWATCH_API std::optional<bool> parseSandboxWish(std::string_view text);

/// One of lossKinds.
[[nodiscard]] TIDEWATCH_API std::optional<std::string> parseLossKind(std::string_view text);

/// Throws InvalidValue for a name that a grid cannot have.
[[nodiscard]] TIDEWATCH_API std::optional<std::string> parseGridName(std::string_view text);

} // namespace Tidewatch
