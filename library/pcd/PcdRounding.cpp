// SPDX-License-Identifier: Apache-2.0
#include "library/pcd/PcdRounding.hpp"

#include "convlib/NumberText.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <limits>
#include <vector>

namespace Tidewatch {

namespace {

/// Significant digits that tell any two doubles apart.
constexpr int fullPrecision = std::numeric_limits<double>::max_digits10;

/// Significant digits of the shift in the header.
constexpr int shiftDigits = 8;

struct ShiftedAxis {
    double shift;
    /// The largest distance of a coordinate from the shift.
    double magnitude;
    double step;

    /// The unit of the last of so many significant digits.
    [[nodiscard]] double lastUnit(int digits) const {
        return std::pow(10.0, std::floor(std::log10(magnitude)) - digits + 1);
    }
    [[nodiscard]] bool isKeptWith(int digits) const {
        // Steps such as 0.01 are no exact doubles.
        constexpr double sameEnough = 1 + 1e-9;
        return magnitude == 0 || digits >= fullPrecision || lastUnit(digits) <= step * sameEnough;
    }
};

ShiftedAxis shifted(const CoordinateSurvey::Axis& axis, double inputStep) {
    // The exporter's shift, its upper corner's start value included.
    const double upper = std::max(axis.upper, std::numeric_limits<double>::min());
    const double shift = std::floor((upper - axis.lower) * 0.5 + axis.lower);
    return {shift, std::max(std::abs(axis.lower - shift), std::abs(axis.upper - shift)),
            axis.stepToKeep(inputStep)};
}

/// The axes that have coordinates.
std::vector<ShiftedAxis> shiftedAxes(const CoordinateSurvey& survey,
                                     const std::optional<Geom::PhysicalSpace::vector>& inputStep) {
    const Geom::PhysicalSpace::vector steps = inputStep.value_or(Geom::PhysicalSpace::vector{});
    const double stepOf[] = {steps.x, steps.y, steps.z};
    std::vector<ShiftedAxis> axes;
    for (std::size_t number = 0; number < CoordinateSurvey::axes; ++number) {
        if (const auto axis = survey.axis(number))
            axes.push_back(shifted(*axis, stepOf[number]));
    }
    return axes;
}

/// The number that a text of so many significant digits brings back.
double readBack(double value, int digits) {
    std::array<char, ConvLib::generalTextSize(shiftDigits)> text;
    const char* const end = ConvLib::appendGeneral(text.data(), value, digits);
    double back = 0;
    std::from_chars(text.data(), end, back);
    return back;
}

} // namespace

std::optional<PcdRounding> PcdRounding::of(const CoordinateSurvey& survey,
                                           const std::optional<Geom::PhysicalSpace::vector>& inputStep,
                                           int precision) {
    const int digits = ConvLib::effectivePrecision(precision);
    std::optional<PcdRounding> worst;
    for (const ShiftedAxis& written : shiftedAxes(survey, inputStep)) {
        if (written.isKeptWith(digits))
            continue;
        int sufficient = digits + 1;
        while (!written.isKeptWith(sufficient))
            ++sufficient;
        const double loss = written.lastUnit(digits) / 2;
        if (!worst)
            worst = PcdRounding{loss, written.step, sufficient};
        if (loss > worst->loss) {
            worst->loss = loss;
            worst->step = written.step;
        }
        worst->sufficientPrecision = std::max(worst->sufficientPrecision, sufficient);
    }
    return worst;
}

double PcdRounding::ofShift(const CoordinateSurvey& survey,
                            const std::optional<Geom::PhysicalSpace::vector>& inputStep) {
    double most = 0;
    for (const ShiftedAxis& axis : shiftedAxes(survey, inputStep)) {
        const double loss = std::abs(axis.shift - readBack(axis.shift, shiftDigits));
        if (loss > axis.step / 2)
            most = std::max(most, loss);
    }
    return most;
}

} // namespace Tidewatch
