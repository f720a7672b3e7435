// SPDX-License-Identifier: Apache-2.0
#include "pcd/PcdPrecision.hpp"

#include "convlib/NumberText.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>

namespace ExportLib {

namespace {

/// Significant digits that distinguish any two doubles.
constexpr int fullPrecision = std::numeric_limits<double>::max_digits10;

/// The unit of the last significant digit.
double lastUnit(double magnitude, int digits) {
    return std::pow(10.0, std::floor(std::log10(magnitude)) - digits + 1);
}

} // namespace

PcdAxis PcdAxis::of(double lower, double upper) noexcept {
    // The box's upper corner starts at the smallest positive double, not at the most negative one. Shifts in existing
    // files depend on it, so it stays.
    const double top = std::max(upper, std::numeric_limits<double>::min());
    const double shift = std::floor((top - lower) * 0.5 + lower);
    return {shift, std::max(std::abs(lower - shift), std::abs(upper - shift))};
}

double PcdAxis::rounding(int precision) const noexcept {
    const int digits = ConvLib::effectivePrecision(precision);
    return farthest == 0 || digits >= fullPrecision ? 0 : lastUnit(farthest, digits) / 2;
}

bool PcdAxis::keeps(double step, int precision) const noexcept {
    // Steps such as 0.01 are not exact in binary.
    constexpr double sameEnough = 1 + 1e-9;
    return rounding(precision) * 2 <= step * sameEnough;
}

int PcdAxis::precisionToKeep(double step) const noexcept {
    int precision = 1;
    while (precision < fullPrecision && !keeps(step, precision))
        ++precision;
    return precision;
}

double PcdAxis::shiftRounding() const noexcept {
    std::array<char, ConvLib::generalTextSize(pcdShiftDigits)> text;
    const char* const end = ConvLib::appendGeneral(text.data(), shift, pcdShiftDigits);
    double written = 0;
    std::from_chars(text.data(), end, written);
    return std::abs(shift - written);
}

} // namespace ExportLib
