// SPDX-License-Identifier: Apache-2.0
#include "library/las/LasFindings.hpp"

#include <algorithm>
#include <cmath>
#include <span>
#include <string_view>

namespace Tidewatch {

namespace {

using Geom::PhysicalSpace;

constexpr unsigned classLimit = 31;

/// The values that become attributes of points.
template <class T>
std::span<const T> used(const LasColumns::Column<T>& column, std::uint64_t points) {
    const std::span<const T> values = valuesOf(column);
    return values.first(std::min<std::uint64_t>(values.size(), points));
}

template <class T, class Condition>
std::uint64_t count(std::span<const T> values, Condition condition) {
    return static_cast<std::uint64_t>(std::count_if(values.begin(), values.end(), condition));
}

} // namespace

unsigned lasReturnLimit(const LasSettings& settings) noexcept {
    return settings.isExtended() ? 15 : 7;
}

void LasFindings::look(const LasColumns& columns, std::uint64_t fragmentPoints, const LasAxes& axes,
                       const LasMapping& mapping, const LasSettings& settings) {
    points += fragmentPoints;
    const auto supply = [&](std::string_view name, const auto& column) {
        const std::uint64_t size = valuesOf(column).size();
        if (size == 0)
            return;
        Supply& known = supplies[std::string(name)];
        known.values += std::min(size, fragmentPoints);
        known.surplus += size - std::min(size, fragmentPoints);
    };
    columns.forEach(supply);

    lookAtPositions(used(columns.positions, fragmentPoints), axes);
    if (!settings.isExtended())
        highClasses += count(used(columns.classification, fragmentPoints),
                             [](unsigned char value) { return value > classLimit; });

    const auto returnNumber = used(columns.returnNumber, fragmentPoints);
    const auto numberOfReturns = used(columns.numberOfReturns, fragmentPoints);
    const unsigned limit = lasReturnLimit(settings);
    for (std::size_t i = 0; i < std::max(returnNumber.size(), numberOfReturns.size()); ++i)
        highReturns += (i < returnNumber.size() && returnNumber[i] > limit) ||
                               (i < numberOfReturns.size() && numberOfReturns[i] > limit)
                           ? 1U
                           : 0U;
    const auto edge = used(columns.edgeOfFlightLine, fragmentPoints);
    const auto direction = used(columns.scanDirectionFlag, fragmentPoints);
    for (std::size_t i = 0; i < std::max(edge.size(), direction.size()); ++i)
        wideFlags += (i < edge.size() && edge[i] > 1) || (i < direction.size() && direction[i] > 1) ? 1U : 0U;

    const auto isNotZero = [](auto value) { return value != 0; };
    if (settings.isExtended())
        rawAngles += count(used(columns.scanAngleRank, fragmentPoints), isNotZero);
    else
        fineAngles += count(used(columns.scanAngle, fragmentPoints), isNotZero);
    lookAtExtraBytes(columns, fragmentPoints, mapping);
}

void LasFindings::lookAtPositions(std::span<const PhysicalSpace::point> positions, const LasAxes& axes) {
    survey.look(positions);
    lookAlong(0, positions, &PhysicalSpace::point::x, axes[0]);
    lookAlong(1, positions, &PhysicalSpace::point::y, axes[1]);
    lookAlong(2, positions, &PhysicalSpace::point::z, axes[2]);
}

void LasFindings::lookAlong(std::size_t axis, std::span<const PhysicalSpace::point> positions,
                            double PhysicalSpace::point::*coordinate,
                            const ExportLib::ExportPointCloudToLas::Axis& stored) {
    const double lowest = stored.lowest();
    const double highest = stored.highest();
    double most = rounding[axis];
    for (const PhysicalSpace::point& point : positions) {
        const double value = point.*coordinate;
        // Also false for what is not a number.
        if (!(value >= lowest && value <= highest)) {
            if (!stray)
                stray = Stray{axis, value};
            continue;
        }
        const double kept = stored.offset + std::round((value - stored.offset) / stored.step) * stored.step;
        most = std::max(most, std::abs(kept - value));
    }
    rounding[axis] = most;
}

void LasFindings::lookAtExtraBytes(const LasColumns& columns, std::uint64_t fragmentPoints,
                                   const LasMapping& mapping) {
    if (mapping.hasReflectance) {
        const auto reflectance = used(columns.reflectance, fragmentPoints);
        lateValues += reflectance.size();
        for (const float value : reflectance) {
            constexpr double steps = 2184;
            const double stored = std::round((static_cast<double>(value) + 25) * steps);
            if (stored >= 0 && stored <= 65535)
                reflectanceRounding =
                    std::max(reflectanceRounding, std::abs(stored / steps - 25 - static_cast<double>(value)));
            else
                ++wildReflectances;
        }
    }
    if (mapping.hasAmplitude) {
        lateValues += used(columns.amplitude, fragmentPoints).size();
        if (columns.amplitude)
            return;
        const auto amplitude = used(columns.amplitudeFloat, fragmentPoints);
        lateValues += amplitude.size();
        for (const float value : amplitude) {
            if (value > -1 && value < 65536)
                amplitudeRounding =
                    std::max(amplitudeRounding, static_cast<double>(std::abs(std::trunc(value) - value)));
            else
                ++wildAmplitudes;
        }
    }
}

} // namespace Tidewatch
