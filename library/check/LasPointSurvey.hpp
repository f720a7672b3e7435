// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/las/LasHeader.hpp"
#include "readers/las/Point.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>

namespace Tidewatch {

/// Statistics from one pass over the points of a LAS file, in constant memory.
class LasPointSurvey {
public:
    /// The number of points with some property, and the index of the first.
    struct Occurrence {
        std::uint64_t count = 0;
        std::uint64_t first = 0;

        void take(std::uint64_t point) noexcept {
            if (count++ == 0)
                first = point;
        }
    };

    template <class T>
    struct Range {
        T lowest = std::numeric_limits<T>::max();
        T highest = std::numeric_limits<T>::lowest();

        void take(T value) noexcept {
            lowest = value < lowest ? value : lowest;
            highest = value > highest ? value : highest;
        }
        [[nodiscard]] bool isEmpty() const noexcept { return lowest > highest; }
    };

    explicit LasPointSurvey(const Las::LasHeader& header) noexcept;

    /// Watches two of the extra bytes at an offset, see isLate().
    void watch(std::size_t offset) noexcept;

    /// Takes the next points of the file.
    void take(std::span<const Las::Point> block) noexcept;

    std::uint64_t points = 0;
    std::array<Range<std::int32_t>, 3> stored;
    std::array<std::uint64_t, 16> byReturn{};
    std::array<Occurrence, 256> classes{};
    Occurrence returnsOfNone;     ///< return number 0
    Occurrence returnsBeyondOwn;  ///< a return number above the number of returns
    Occurrence anglesBeyondRange; ///< more than 90 degrees, or 180 in formats 6 to 10
    Occurrence timesNotFinite;    ///< GPS times that are not numbers, or infinite
    Occurrence timesOutsideWeek;  ///< GPS times that are not seconds of a week
    Range<std::int16_t> angles;
    Range<double> times;      ///< of those that are finite
    std::uint16_t colors = 0; ///< bitwise OR of all colour values

    /// Whether the watched bytes are zero in the first point but not in all points.
    [[nodiscard]] bool isLate() const noexcept { return firstIsZero_ && othersAreNot_; }

private:
    void takeWatched(const std::uint8_t* extraBytes) noexcept;

    bool hasTime_;
    std::int16_t largestAngle_;
    std::array<std::optional<std::size_t>, 2> watched_{};
    bool firstIsZero_ = false;
    bool othersAreNot_ = false;
};

} // namespace Tidewatch
