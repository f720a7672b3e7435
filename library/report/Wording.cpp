// SPDX-License-Identifier: Apache-2.0
#include "library/report/Wording.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <system_error>

#include <fmt/format.h>

namespace Tidewatch {

std::string shortestText(double value) {
    char digits[32];
    return {digits, std::to_chars(digits, digits + sizeof digits, value).ptr};
}

std::string coordinateText(double value) {
    constexpr double exactIntegers = 9007199254740992; // 2 to the 53rd
    if (!(std::abs(value) <= exactIntegers))
        return shortestText(value);
    std::string text = fmt::format("{:.9f}", value);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.')
        text.pop_back();
    return text == "-0" ? "0" : text;
}

std::string coordinateText(double value, double step) {
    if (!(step > 0) || !std::isfinite(step) || !(std::abs(value) <= 1e15))
        return coordinateText(value);
    constexpr int mostDecimals = 9;
    int decimals = 0;
    for (double scaled = step; decimals <= mostDecimals; ++decimals, scaled *= 10) {
        if (std::abs(scaled - std::round(scaled)) <= 1e-9 * scaled)
            break;
    }
    // A step that is no short decimal: as many as tell its multiples apart.
    if (decimals > mostDecimals)
        decimals = std::clamp(static_cast<int>(std::ceil(-std::log10(step))), 0, mostDecimals);
    const std::string text = fmt::format("{:.{}f}", value, decimals);
    // Nothing but zeros.
    return text.starts_with('-') && text.find_first_not_of("-0.") == std::string::npos ? text.substr(1)
                                                                                       : text;
}

std::string grouped(std::uint64_t number) {
    std::string text = std::to_string(number);
    for (std::size_t place = text.size(); place > 3;) {
        place -= 3;
        text.insert(place, 1, ' ');
    }
    return text;
}

std::string counted(std::uint64_t number, std::string_view what) {
    return fmt::format("{} {}{}", grouped(number), what, number == 1 ? "" : "s");
}

std::string memoryText(std::uint64_t bytes) {
    static constexpr std::array units{"bytes", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    auto value = static_cast<double>(bytes);
    std::size_t unit = 0;
    for (; value >= 1024 && unit + 1 < units.size(); ++unit)
        value /= 1024;
    return unit == 0 ? fmt::format("{} {}", bytes, units[0]) : fmt::format("{:.3g} {}", value, units[unit]);
}

std::string gridAtTime(std::string_view grid, double time) {
    return fmt::format("grid \"{}\" at time {}", grid, shortestText(time));
}

std::string joined(const std::vector<std::string>& texts, std::string_view separator) {
    return fmt::format("{}", fmt::join(texts, separator));
}

std::string listed(const std::vector<std::string>& texts) {
    constexpr std::size_t most = 3;
    if (texts.size() <= most)
        return joined(texts);
    return fmt::format("{} and {} more", fmt::join(texts.begin(), texts.begin() + most, ", "),
                       grouped(texts.size() - most));
}

std::string systemMessage(int errorNumber) {
    return std::generic_category().message(errorNumber);
}

} // namespace Tidewatch
