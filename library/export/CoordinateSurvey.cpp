// SPDX-License-Identifier: Apache-2.0
#include "library/export/CoordinateSurvey.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Tidewatch {

namespace {

constexpr double powersOfTen[] = {1, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9};

/// The nearest whole number, without a call of std::rint, which is a function on baseline x86-64 processors.
double nearest(double value) {
    constexpr double shifter = 0x1.8p52;
    return std::abs(value) < 0x1p51 ? (value + shifter) - shifter : std::rint(value);
}

bool isMultiple(double value, double stepsPerUnit, double tolerance) {
    return std::abs(value - nearest(value * stepsPerUnit) / stepsPerUnit) <= tolerance;
}

/// Whether a 32-bit float is the nearest one to a multiple.
bool isFloatOfMultiple(double value, double stepsPerUnit) {
    const double multiple = nearest(value * stepsPerUnit) / stepsPerUnit;
    return static_cast<double>(static_cast<float>(multiple)) == value;
}

template <class T>
double resolutionAt(double value) {
    const T number = static_cast<T>(value);
    return static_cast<double>(std::nextafter(number, std::numeric_limits<T>::infinity()) - number);
}

} // namespace

double CoordinateSurvey::Axis::stepToKeep(double statedStep) const {
    if (statedStep > 0)
        return statedStep;
    const double farthest = std::max(std::abs(lower), std::abs(upper));
    if (!areFloats)
        return decimalStep.value_or(resolutionAt<double>(farthest));
    return std::max(decimalStep.value_or(0), resolutionAt<float>(farthest));
}

void CoordinateSurvey::look(std::span<const Geom::PhysicalSpace::point> points) {
    points_ += points.size();
    lookAlong(axes_[0], points, &Geom::PhysicalSpace::point::x);
    lookAlong(axes_[1], points, &Geom::PhysicalSpace::point::y);
    lookAlong(axes_[2], points, &Geom::PhysicalSpace::point::z);
}

void CoordinateSurvey::lookAlong(Progress& axis, std::span<const Geom::PhysicalSpace::point> points,
                                 double Geom::PhysicalSpace::point::*coordinate) {
    double lower = axis.isEmpty ? std::numeric_limits<double>::infinity() : axis.lower;
    double upper = axis.isEmpty ? -std::numeric_limits<double>::infinity() : axis.upper;
    for (const auto& point : points) {
        const double value = point.*coordinate;
        if (std::isfinite(value)) {
            lower = std::min(lower, value);
            upper = std::max(upper, value);
        }
    }
    if (lower > upper)
        return;
    axis.lower = lower;
    axis.upper = upper;
    axis.isEmpty = false;
    if (axis.areFloats)
        lookAtFloats(axis, points, coordinate);

    // Coordinates are sums of an offset and a multiple of a scale, each rounded at the magnitude of the
    // range.
    const double tolerance =
        4 * std::numeric_limits<double>::epsilon() * std::max(std::abs(lower), std::abs(upper));
    if (axis.decimals > finestDecimal)
        return;
    double stepsPerUnit = powersOfTen[axis.decimals];
    for (const auto& point : points) {
        const double value = point.*coordinate;
        // isMultiple() is false for values that are not finite, too.
        if (isMultiple(value, stepsPerUnit, tolerance) || !std::isfinite(value))
            continue;
        do {
            if (++axis.decimals > finestDecimal)
                return;
            stepsPerUnit = powersOfTen[axis.decimals];
        } while (!isMultiple(value, stepsPerUnit, tolerance));
    }
}

void CoordinateSurvey::lookAtFloats(Progress& axis, std::span<const Geom::PhysicalSpace::point> points,
                                    double Geom::PhysicalSpace::point::*coordinate) {
    constexpr auto largest = static_cast<double>(std::numeric_limits<float>::max());
    for (const auto& point : points) {
        const double value = point.*coordinate;
        if (!std::isfinite(value))
            continue;
        axis.areFloats =
            std::abs(value) <= largest && static_cast<double>(static_cast<float>(value)) == value;
        if (!axis.areFloats)
            return;
        while (axis.floatDecimals <= finestDecimal &&
               !isFloatOfMultiple(value, powersOfTen[axis.floatDecimals]))
            ++axis.floatDecimals;
    }
}

std::optional<CoordinateSurvey::Axis> CoordinateSurvey::axis(std::size_t number) const {
    const Progress& known = axes_.at(number);
    if (known.isEmpty)
        return std::nullopt;
    Axis axis{known.lower, known.upper, std::nullopt, known.areFloats && known.decimals > finestDecimal};
    if (const int decimals = axis.areFloats ? known.floatDecimals : known.decimals; decimals <= finestDecimal)
        axis.decimalStep = 1 / powersOfTen[decimals];
    return axis;
}

} // namespace Tidewatch
