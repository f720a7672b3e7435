// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/Progress.hpp"

#include <algorithm>
#include <cstddef>

namespace Tidewatch {

/// The shares of a run, as most commands divide it: opening the inputs, the work, and putting files in place. Guesses of how
/// long each takes.
struct ProgressParts {
    static constexpr double opened = 0.05;
    /// Where points are cut into squares, which reads all of them, that comes before the work.
    static constexpr double cut = 0.5;
    static constexpr double worked = 0.95;

    /// Part `number` (from 0) of `count` equal ones between two shares.
    static void one(Progress& progress, std::size_t number, std::size_t count, double from, double to) {
        const double size = (to - from) / static_cast<double>(std::max<std::size_t>(count, 1));
        progress.part(from + static_cast<double>(number) * size,
                      from + static_cast<double>(number + 1) * size);
    }
};

} // namespace Tidewatch
