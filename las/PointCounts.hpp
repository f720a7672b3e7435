// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "las/ExtraBytesWriter.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include <lasdefinitions.hpp>

namespace ExportLib {

/// Counts changes of values stored as 16-bit numbers.
struct ShortChanges {
    std::uint64_t wrapped = 0;
    std::uint64_t rounded = 0;
    /// The greatest change by rounding, in units of the stored number.
    double most = 0;

    void note(double value, std::uint16_t stored) noexcept {
        const double change = std::abs(value - stored);
        if (change == 0)
            return;
        // NaN counts as wrapped, too.
        if (!(change < 1)) {
            ++wrapped;
            return;
        }
        ++rounded;
        if (change > most) [[unlikely]]
            most = change;
    }

    void add(const ShortChanges& other) noexcept {
        wrapped += other.wrapped;
        rounded += other.rounded;
        most = std::max(most, other.most);
    }
};

/// Counts points, each once even if several of its values are noted.
struct PointCount {
    std::uint64_t points = 0;
    std::size_t last = std::numeric_limits<std::size_t>::max();

    void note(std::size_t point) noexcept {
        points += point != last ? 1U : 0U;
        last = point;
    }

    /// Of other points.
    void add(const PointCount& other) noexcept { points += other.points; }
};

/// Counts changes of coordinates.
struct PositionChanges {
    /// In steps: smaller changes are rounding errors of floating-point arithmetic and not counted.
    static constexpr double noise = 1e-6;

    /// Points with a rounded coordinate, and points with one that does not fit or is NaN.
    std::uint64_t rounded = 0;
    std::uint64_t misfits = 0;
    /// The greatest change along each axis, in steps.
    double x = 0;
    double y = 0;
    double z = 0;

    void note(double byX, double byY, double byZ) noexcept {
        // Coordinates that fit change by at most half a step, others by 2^31 steps or more.
        const double sum = byX + byY + byZ;
        if (!(sum < 2)) {
            ++misfits;
            return;
        }
        rounded += sum > noise ? 1U : 0U;
        if (byX > x) [[unlikely]]
            x = byX;
        if (byY > y) [[unlikely]]
            y = byY;
        if (byZ > z) [[unlikely]]
            z = byZ;
    }

    void add(const PositionChanges& other) noexcept {
        rounded += other.rounded;
        misfits += other.misfits;
        x = std::max(x, other.x);
        y = std::max(y, other.y);
        z = std::max(z, other.z);
    }
};

/// What is only counted for an observer.
struct ObservedCounts {
    PositionChanges positions;
    std::uint64_t highClasses = 0;
    PointCount highReturns;
    PointCount wideFlags;
    std::uint64_t fineAngles = 0;
    std::uint64_t wholeAngles = 0;
    ShortChanges reflectance;
    ShortChanges amplitude;
    // Counts for features beyond the contract.
    std::uint64_t roundedAngles = 0;
    double maxAngleChange = 0;
    std::uint64_t highChannels = 0;
    std::uint64_t overlaps = 0;
    std::uint64_t scannerChannels = 0;
    std::uint64_t nearInfrared = 0;

    void add(const ObservedCounts& other) noexcept {
        positions.add(other.positions);
        highClasses += other.highClasses;
        highReturns.add(other.highReturns);
        wideFlags.add(other.wideFlags);
        fineAngles += other.fineAngles;
        wholeAngles += other.wholeAngles;
        reflectance.add(other.reflectance);
        amplitude.add(other.amplitude);
        roundedAngles += other.roundedAngles;
        maxAngleChange = std::max(maxAngleChange, other.maxAngleChange);
        highChannels += other.highChannels;
        overlaps += other.overlaps;
        scannerChannels += other.scannerChannels;
        nearInfrared += other.nearInfrared;
    }
};

/// What is counted while points are made. Counts of parts of a fragment, added, are those of the whole.
struct PointCounts {
    explicit PointCounts(std::size_t extraWriters) : extras(extraWriters) {
        least.fill(std::numeric_limits<I32>::max());
        greatest.fill(std::numeric_limits<I32>::min());
    }

    /// Return numbers that the format cannot hold.
    std::uint64_t violations = 0;
    /// Points of each return, the first return at index 0.
    std::array<std::uint32_t, 15> byReturn{};
    /// The smallest and largest stored integers; without points, least > greatest.
    std::array<I32, 3> least{};
    std::array<I32, 3> greatest{};
    ObservedCounts observed;
    /// By the writer of extra bytes.
    std::vector<ExtraBytesWriter::Changes> extras;

    void add(const PointCounts& other) noexcept {
        violations += other.violations;
        for (std::size_t i = 0; i < byReturn.size(); ++i)
            byReturn[i] += other.byReturn[i];
        for (std::size_t i = 0; i < least.size(); ++i) {
            least[i] = std::min(least[i], other.least[i]);
            greatest[i] = std::max(greatest[i], other.greatest[i]);
        }
        observed.add(other.observed);
        for (std::size_t i = 0; i < extras.size(); ++i)
            extras[i].add(other.extras[i]);
    }
};

} // namespace ExportLib
