// SPDX-License-Identifier: Apache-2.0
#include "host/options/OptionValues.hpp"

#include <algorithm>
#include <cstddef>
#include <limits>

#include <fmt/format.h>

namespace Tidewatch {

std::optional<std::string> anyText(std::string_view text) {
    return std::string(text);
}

std::optional<double> finiteNumber(std::string_view text) {
    const auto number = parseNumber<double>(text);
    return number && std::isfinite(*number) ? number : std::nullopt;
}

std::optional<std::uint64_t> positiveCount(std::string_view text) {
    const auto number = parseNumber<std::uint64_t>(text);
    return number && *number > 0 ? number : std::nullopt;
}

std::optional<std::uint64_t> parseByteSize(std::string_view text) {
    constexpr std::string_view suffixes = "KMGT";
    unsigned shift = 0;
    if (!text.empty()) {
        const char last = text.back();
        const char upper = last >= 'a' && last <= 'z' ? static_cast<char>(last - 'a' + 'A') : last;
        if (const std::size_t place = suffixes.find(upper); place != std::string_view::npos) {
            shift = 10 * (static_cast<unsigned>(place) + 1);
            text.remove_suffix(1);
        }
    }
    const auto number = parseNumber<std::uint64_t>(text);
    if (!number || *number > std::numeric_limits<std::uint64_t>::max() >> shift)
        return std::nullopt;
    return *number << shift;
}

std::optional<ConvLib::BasicConverterDefs::TimeRange> parseTimeRange(std::string_view text) {
    const std::size_t colon = text.find(':');
    const auto first = parseNumber<double>(text.substr(0, colon));
    const auto last = colon == std::string_view::npos ? first : parseNumber<double>(text.substr(colon + 1));
    if (!first || !last)
        return std::nullopt;
    if (*first > *last)
        throw InvalidValue(fmt::format("{} is greater than {}", *first, *last));
    return ConvLib::BasicConverterDefs::TimeRange{*first, *last};
}

std::optional<std::vector<Geom::MultiRange<double>::Range>> parseRanges(std::string_view text) {
    return parseList(text, [](std::string_view part) -> std::optional<Geom::MultiRange<double>::Range> {
        const auto range = parseTimeRange(part);
        return range ? std::optional(Geom::MultiRange<double>::Range{range->first, range->last})
                     : std::nullopt;
    });
}

std::optional<std::array<double, 3>> parseTriple(std::string_view text) {
    const auto numbers = parseList(text, finiteNumber);
    if (!numbers || (numbers->size() != 1 && numbers->size() != 3))
        return std::nullopt;
    const std::vector<double>& n = *numbers;
    return n.size() == 1 ? std::array{n[0], n[0], n[0]} : std::array{n[0], n[1], n[2]};
}

std::optional<std::array<double, 3>> parseSteps(std::string_view text) {
    const auto steps = parseTriple(text);
    return steps && std::all_of(steps->begin(), steps->end(), [](double step) { return step > 0; })
               ? steps
               : std::nullopt;
}

std::optional<double> positiveNumber(std::string_view text) {
    const auto number = finiteNumber(text);
    return number && *number > 0 ? number : std::nullopt;
}

std::optional<PointBox> parseBox(std::string_view text) {
    const auto numbers = parseList(text, finiteNumber);
    if (!numbers || (numbers->size() != 4 && numbers->size() != 6))
        return std::nullopt;
    const std::vector<double>& n = *numbers;
    PointBox box;
    box.lower.x = n[0];
    box.lower.y = n[1];
    box.upper.x = n[2];
    box.upper.y = n[3];
    if (n.size() == 6) {
        box.lower.z = n[4];
        box.upper.z = n[5];
    }
    const auto check = [](const char* axis, double lower, double upper) {
        if (!(lower < upper))
            throw InvalidValue(fmt::format("{0}MIN {1} is not below {0}MAX {2}", axis, lower, upper));
    };
    check("X", box.lower.x, box.upper.x);
    check("Y", box.lower.y, box.upper.y);
    check("Z", box.lower.z, box.upper.z);
    return box;
}

std::optional<std::set<std::uint8_t>> parseClasses(std::string_view text) {
    const auto numbers = parseList(text, parseNumber<std::uint8_t>);
    return numbers ? std::optional(std::set<std::uint8_t>(numbers->begin(), numbers->end())) : std::nullopt;
}

std::optional<ReturnChoice> parseReturns(std::string_view text) {
    ReturnChoice choice;
    const auto add = [&](std::string_view part) -> std::optional<bool> {
        if (part == "first")
            return choice.first = true;
        if (part == "last")
            return choice.last = true;
        if (part == "only")
            return choice.only = true;
        constexpr std::uint8_t most = 15; // LAS 1.4 R15, "Point Data Record Format 6": four bits
        const auto number = parseNumber<std::uint8_t>(part);
        if (!number || *number < 1 || *number > most)
            return std::nullopt;
        choice.numbers.insert(*number);
        return true;
    };
    return parseList(text, add) ? std::optional(choice) : std::nullopt;
}

} // namespace Tidewatch
