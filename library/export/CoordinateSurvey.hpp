// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "geom/PhysicalSpace.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace Tidewatch {

/// What is learnt of the coordinates of a cloud by looking through them once: their range and the step they
/// stand on.
///
/// Cost: a few nanoseconds a point. Coordinates that are not finite count as points and tell nothing else.
class CoordinateSurvey {
public:
    static constexpr std::size_t axes = 3;

    /// What is known of one axis.
    struct Axis {
        double lower;
        double upper;
        /// The coarsest of 1, 0.1, ... 1e-9 of which every coordinate is a multiple within the rounding of
        /// doubles of this range; nullopt where there is none.
        std::optional<double> decimalStep;

        /// The step to which coordinates are to be kept: the one that the input states (0: it states none),
        /// else the decimal step, else the resolution of doubles of this range.
        [[nodiscard]] double stepToKeep(double statedStep) const;
    };

    void look(std::span<const Geom::PhysicalSpace::point> points);

    [[nodiscard]] std::uint64_t points() const noexcept { return points_; }

    /// An axis (0 is x); nothing while it has met no finite coordinate.
    [[nodiscard]] std::optional<Axis> axis(std::size_t number) const;

private:
    static constexpr int finestDecimal = 9;

    struct Progress {
        double lower;
        double upper;
        int decimals; // finestDecimal + 1: no step
        bool isEmpty = true;
    };

    void lookAlong(Progress& axis, std::span<const Geom::PhysicalSpace::point> points,
                   double Geom::PhysicalSpace::point::*coordinate);

    std::array<Progress, axes> axes_{};
    std::uint64_t points_ = 0;
};

} // namespace Tidewatch
