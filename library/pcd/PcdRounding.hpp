// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "geom/PhysicalSpace.hpp"
#include "library/export/CoordinateSurvey.hpp"

#include <optional>

namespace Tidewatch {

/// By how much a PCD file rounds coordinates (ExportLib::PcdAxis), where that is more than the input's own precision.
struct PcdRounding {
    /// The most that a coordinate can change, in coordinate units: half a unit of the last digit.
    double loss;
    /// The step of the input on the axis concerned.
    double step;
    /// The smallest Precision that keeps every axis.
    int sufficientPrecision;

    /// Nothing where all axes keep their precision. `inputStep` is the step in which the input stores
    /// coordinates; without one the decimal step of the survey counts, and without that the resolution of a
    /// double of that range.
    [[nodiscard]] static std::optional<PcdRounding>
    of(const CoordinateSurvey& survey, const std::optional<Geom::PhysicalSpace::vector>& inputStep,
       int precision);

    /// By how much the shift in the header, which is written with eight significant digits, differs from the
    /// one that was subtracted: the most of all axes on which that is more than half the input's step, else
    /// 0.
    [[nodiscard]] static double ofShift(const CoordinateSurvey& survey,
                                        const std::optional<Geom::PhysicalSpace::vector>& inputStep);
};

} // namespace Tidewatch
