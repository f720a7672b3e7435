// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

namespace ExportLib {

/// Significant digits of the shift in the header.
inline constexpr int pcdShiftDigits = 8;

/// Significant digits that preserve every packed colour: a 24-bit number that is written as the float with the same
/// bits.
inline constexpr int pcdColorDigits = 8;

/// How a PCD file stores the coordinates along one axis: relative to a shift, with a number of significant digits, so
/// the coordinate farthest from the shift is rounded most. Lengths are in coordinate units; a Precision is that of
/// ExportPointCloudToPCD, 0 and negative numbers included.
struct TIDEWATCH_API PcdAxis {
    /// Subtracted from every coordinate: the centre of the box rounded down to a whole number.
    double shift;
    /// The largest distance of a coordinate from the shift.
    double farthest;

    /// The axis of coordinates from `lower` to `upper`. The exporter's box reaches up to (almost) 0 if all of them are
    /// negative.
    [[nodiscard]] static PcdAxis of(double lower, double upper) noexcept;

    /// The largest possible change of a coordinate: half a unit of the last digit of the farthest one.
    [[nodiscard]] double rounding(int precision) const noexcept;

    /// Whether coordinates that are multiples of `step` can be restored from the file.
    [[nodiscard]] bool keeps(double step, int precision) const noexcept;

    /// The smallest Precision for which keeps() is true.
    [[nodiscard]] int precisionToKeep(double step) const noexcept;

    /// By how much the shift in the header differs from the one that was subtracted.
    [[nodiscard]] double shiftRounding() const noexcept;
};

} // namespace ExportLib
