// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

namespace ExportLib {

/// Significant digits of the shift in the header.
inline constexpr int pcdShiftDigits = 8;

/// Significant digits that keep every packed colour: a number of 24 bits that is in the file as the float of
/// the same bits.
inline constexpr int pcdColorDigits = 8;

/// How a PCD file states the coordinates along one axis: relative to a shift, with a number of significant digits, so
/// that the coordinate farthest from the shift is rounded most. Lengths are in coordinate units; a Precision is that
/// of ExportPointCloudToPCD, 0 and negative numbers included.
struct TIDEWATCH_API PcdAxis {
    /// What is subtracted from every coordinate: the centre of the box rounded down to a whole number.
    double shift;
    /// The largest distance of a coordinate from the shift.
    double farthest;

    /// The axis of coordinates from `lower` to `upper`. The exporter's box reaches up to (almost) 0 where all of them
    /// are negative.
    [[nodiscard]] static PcdAxis of(double lower, double upper) noexcept;

    /// The most that a coordinate can change: half a unit of the last digit of the farthest one.
    [[nodiscard]] double rounding(int precision) const noexcept;

    /// Whether coordinates on steps of a size stay on them.
    [[nodiscard]] bool keeps(double step, int precision) const noexcept;

    /// The smallest Precision that keeps steps of a size.
    [[nodiscard]] int precisionToKeep(double step) const noexcept;

    /// By how much the shift in the header differs from the one that was subtracted.
    [[nodiscard]] double shiftRounding() const noexcept;
};

} // namespace ExportLib
