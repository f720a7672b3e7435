// SPDX-License-Identifier: Apache-2.0
#include "library/pcd/PcdRounding.hpp"

#include "pcd/PcdPrecision.hpp"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace Tidewatch {

namespace {

struct SteppedAxis {
    ExportLib::PcdAxis written;
    /// The step of the input's coordinates that the file should preserve.
    double step;
};

/// The axes that have coordinates.
std::vector<SteppedAxis> steppedAxes(const CoordinateSurvey& survey,
                                     const std::optional<Geom::PhysicalSpace::vector>& inputStep) {
    const Geom::PhysicalSpace::vector steps = inputStep.value_or(Geom::PhysicalSpace::vector{});
    const double stepOf[] = {steps.x, steps.y, steps.z};
    std::vector<SteppedAxis> axes;
    for (std::size_t number = 0; number < CoordinateSurvey::axes; ++number) {
        if (const auto axis = survey.axis(number))
            axes.push_back(
                {ExportLib::PcdAxis::of(axis->lower, axis->upper), axis->stepToKeep(stepOf[number])});
    }
    return axes;
}

} // namespace

std::optional<PcdRounding> PcdRounding::of(const CoordinateSurvey& survey,
                                           const std::optional<Geom::PhysicalSpace::vector>& inputStep,
                                           int precision) {
    std::optional<PcdRounding> worst;
    for (const SteppedAxis& axis : steppedAxes(survey, inputStep)) {
        if (axis.written.keeps(axis.step, precision))
            continue;
        const double loss = axis.written.rounding(precision);
        const int sufficient = axis.written.precisionToKeep(axis.step);
        if (!worst)
            worst = PcdRounding{loss, axis.step, sufficient};
        if (loss > worst->loss) {
            worst->loss = loss;
            worst->step = axis.step;
        }
        worst->sufficientPrecision = std::max(worst->sufficientPrecision, sufficient);
    }
    return worst;
}

double PcdRounding::ofShift(const CoordinateSurvey& survey,
                            const std::optional<Geom::PhysicalSpace::vector>& inputStep) {
    double most = 0;
    for (const SteppedAxis& axis : steppedAxes(survey, inputStep)) {
        const double loss = axis.written.shiftRounding();
        if (loss > axis.step / 2)
            most = std::max(most, loss);
    }
    return most;
}

} // namespace Tidewatch
