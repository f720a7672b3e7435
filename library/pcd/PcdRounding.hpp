// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "geom/PhysicalSpace.hpp"
#include "library/export/CoordinateSurvey.hpp"

#include <optional>

namespace Tidewatch {

/// By how much a PCD file rounds coordinates (ExportLib::PcdAxis), if that exceeds the input's own precision.
struct PcdRounding {
    /// The largest possible change of a coordinate, in coordinate units: half a unit of the last digit.
    double loss;
    /// The step of the input on the axis concerned.
    double step;
    /// The smallest Precision that preserves every axis.
    int sufficientPrecision;

    /// Nullopt if all axes keep their precision. `inputStep` is the step in which the input stores coordinates; without
    /// one the decimal step of the survey is used, and without that the resolution of a double of that range.
    [[nodiscard]] static std::optional<PcdRounding>
    of(const CoordinateSurvey& survey, const std::optional<Geom::PhysicalSpace::vector>& inputStep,
       int precision);

    /// By how much the shift in the header, which is written with eight significant digits, differs from the one that
    /// was subtracted: the maximum over all axes on which that is more than half the input's step, else 0.
    [[nodiscard]] static double ofShift(const CoordinateSurvey& survey,
                                        const std::optional<Geom::PhysicalSpace::vector>& inputStep);
};

} // namespace Tidewatch
