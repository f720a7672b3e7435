// SPDX-License-Identifier: Apache-2.0
#include "host/options/OptionValues.hpp"

#include <algorithm>
#include <cstddef>
#include <limits>

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
    if (!first || !last || *first > *last)
        return std::nullopt;
    return ConvLib::BasicConverterDefs::TimeRange{*first, *last};
}

std::optional<std::vector<Geom::MultiRange<double>::Range>> parseRanges(std::string_view text) {
    std::vector<Geom::MultiRange<double>::Range> ranges;
    for (;;) {
        const std::size_t comma = text.find(',');
        const auto range = parseTimeRange(text.substr(0, comma));
        if (!range)
            return std::nullopt;
        ranges.push_back({range->first, range->last});
        if (comma == std::string_view::npos)
            return ranges;
        text.remove_prefix(comma + 1);
    }
}

std::optional<std::array<double, 3>> parseTriple(std::string_view text) {
    std::array<double, 3> triple{};
    for (std::size_t i = 0; i < triple.size(); ++i) {
        const std::size_t comma = text.find(',');
        const auto number = finiteNumber(text.substr(0, comma));
        if (!number)
            return std::nullopt;
        triple[i] = *number;
        if (comma == std::string_view::npos) {
            if (i == 0)
                return std::array{*number, *number, *number};
            return i == 2 ? std::optional(triple) : std::nullopt;
        }
        text.remove_prefix(comma + 1);
    }
    return std::nullopt;
}

std::optional<std::array<double, 3>> parseSteps(std::string_view text) {
    const auto steps = parseTriple(text);
    return steps && std::all_of(steps->begin(), steps->end(), [](double step) { return step > 0; })
               ? steps
               : std::nullopt;
}

} // namespace Tidewatch
