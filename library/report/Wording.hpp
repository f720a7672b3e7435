// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Numbers and names as shown in the program's messages. Independent of the locale.
namespace Tidewatch {

/// The shortest decimal text that reads back as the same number: "2.5", "1e+22".
[[nodiscard]] TIDEWATCH_API std::string shortestText(double value);

/// A coordinate for the user: at most nine decimals and no exponent, "1536870.91175"; like shortestText() for
/// numbers that are too large for that or not finite.
[[nodiscard]] TIDEWATCH_API std::string coordinateText(double value);

/// A coordinate that is stored in steps, with as many decimals as the step has, at most nine: "1536870.90" with a step of
/// 0.01; like coordinateText(value) for a step that is not above 0.
[[nodiscard]] TIDEWATCH_API std::string coordinateText(double value, double step);

/// A number for the user, its digits in groups of three: "1 000 000".
[[nodiscard]] TIDEWATCH_API std::string grouped(std::uint64_t number);

/// A grouped number with its unit, given in the singular: "1 point", "110 000 points".
[[nodiscard]] TIDEWATCH_API std::string counted(std::uint64_t number, std::string_view what);

/// Bytes in the largest unit that leaves a number of 1 or more, to three digits: "1.5 GiB".
[[nodiscard]] TIDEWATCH_API std::string memoryText(std::uint64_t bytes);

/// `grid "dunes" at time 2.5`.
[[nodiscard]] TIDEWATCH_API std::string gridAtTime(std::string_view grid, double time);

[[nodiscard]] TIDEWATCH_API std::string joined(const std::vector<std::string>& texts,
                                               std::string_view separator = ", ");

/// The first three, and how many there are besides: "a, b, c and 57 more".
[[nodiscard]] TIDEWATCH_API std::string listed(const std::vector<std::string>& texts);

/// The system's text for an error number.
[[nodiscard]] TIDEWATCH_API std::string systemMessage(int errorNumber);

} // namespace Tidewatch
