// SPDX-License-Identifier: Apache-2.0
#include "library/options/OptionValues.hpp"

#include "anchor/names.hpp"
#include "las/LasPlan.hpp"
#include "library/report/Losses.hpp"
#include "library/report/UsageError.hpp"
#include "library/report/Wording.hpp"

#include <algorithm>
#include <cstddef>
#include <limits>

#include <fmt/format.h>

namespace Tidewatch {

InvalidValue::~InvalidValue() = default;

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

std::optional<std::array<double, 2>> parsePair(std::string_view text) {
    const auto numbers = parseList(text, finiteNumber);
    if (!numbers || numbers->size() != 2)
        return std::nullopt;
    return std::array{numbers->at(0), numbers->at(1)};
}

std::optional<unsigned> parseJobs(std::string_view text) {
    constexpr unsigned most = 1024;
    const auto number = parseNumber<unsigned>(text);
    return number && *number >= 1 && *number <= most ? number : std::nullopt;
}

std::optional<Part> parsePart(std::string_view text) {
    const std::size_t slash = text.find('/');
    if (slash == std::string_view::npos)
        return std::nullopt;
    const auto number = parseNumber<std::size_t>(text.substr(0, slash));
    const auto count = parseNumber<std::size_t>(text.substr(slash + 1));
    if (!number || !count || *number < 1 || *number > *count)
        return std::nullopt;
    return Part{*number, *count};
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

std::optional<int> parseLasVersion(std::string_view text) {
    for (const int minor : {2, 3, 4}) {
        if (text == "1." + std::to_string(minor))
            return minor;
    }
    return std::nullopt;
}

std::optional<int> parsePointSourceID(std::string_view text) {
    const auto number = parseNumber<std::uint16_t>(text);
    return number ? std::optional<int>(*number) : std::nullopt;
}

std::vector<std::string> attributeNames() {
    auto names = ExportLib::LasPlan::attributes(true);
    std::sort(names.begin(), names.end());
    return names;
}

std::optional<std::pair<std::string, std::string>> parseRenaming(std::string_view text) {
    const std::size_t sign = text.rfind('=');
    if (sign == std::string_view::npos || sign == 0)
        return std::nullopt;
    std::pair<std::string, std::string> entry{text.substr(0, sign), text.substr(sign + 1)};
    const auto attributes = attributeNames();
    if (std::find(attributes.begin(), attributes.end(), entry.second) == attributes.end())
        throw UsageError(fmt::format("--rename: there is no attribute \"{}\"; there are {}", entry.second,
                                     joined(attributes)));
    return entry;
}

std::optional<ViewPictureOptions::Size> parsePictureSize(std::string_view text) {
    const std::size_t cross = text.find('x');
    const auto width = parseNumber<std::uint32_t>(text.substr(0, cross));
    const auto height =
        cross == std::string_view::npos ? std::nullopt : parseNumber<std::uint32_t>(text.substr(cross + 1));
    const auto fits = [](std::uint32_t edge) {
        return edge >= ViewPictureOptions::leastEdge && edge <= ViewPictureOptions::mostEdge;
    };
    if (!width || !height || !fits(*width) || !fits(*height))
        return std::nullopt;
    return ViewPictureOptions::Size{*width, *height};
}

std::optional<ViewPictureOptions::Colors> parsePictureColors(std::string_view text) {
    using Colors = ViewPictureOptions::Colors;
    constexpr std::pair<std::string_view, Colors> table[] = {{"height", Colors::Height},
                                                             {"class", Colors::Class},
                                                             {"intensity", Colors::Intensity},
                                                             {"return", Colors::Return},
                                                             {"rgb", Colors::RGB}};
    for (const auto& [name, colors] : table) {
        if (text == name)
            return colors;
    }
    return std::nullopt;
}

std::optional<bool> parseSandboxWish(std::string_view text) {
    if (text == "auto")
        return false;
    if (text == "require")
        return true;
    return std::nullopt;
}

std::optional<std::string> parseLossKind(std::string_view text) {
    const bool isKnown = std::find(lossKinds.begin(), lossKinds.end(), text) != lossKinds.end();
    return isKnown ? std::optional(std::string(text)) : std::nullopt;
}

std::optional<std::string> parseGridName(std::string_view text) {
    if (const std::string_view fault = Anchor::nameFault(text); !fault.empty())
        throw InvalidValue("a grid's name " + std::string(fault));
    return std::string(text);
}

} // namespace Tidewatch
