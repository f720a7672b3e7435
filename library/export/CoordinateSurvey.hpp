// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "geom/PhysicalSpace.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace Tidewatch {

/// Collects the range of a cloud's coordinates and the step of which they are multiples, in one pass.
///
/// Cost: a few nanoseconds per point. Coordinates that are not finite count as points and are otherwise
/// ignored.
class CoordinateSurvey {
public:
    static constexpr std::size_t axes = 3;

    /// The coordinates along one axis.
    struct Axis {
        double lower;
        double upper;
        /// The coarsest of 1, 0.1, ... 1e-9 of which every coordinate is a multiple within the rounding of
        /// doubles of this range or, where areFloats, to 32-bit floats; nullopt if there is none.
        std::optional<double> decimalStep;
        /// Whether every coordinate is a 32-bit float, and no multiple of a decimal step as a double.
        bool areFloats = false;

        /// The step that an output should preserve: the one that the input states (0: it states none), else
        /// the decimal step, else the resolution of doubles or 32-bit floats of this range.
        [[nodiscard]] double stepToKeep(double statedStep) const;
    };

    void look(std::span<const Geom::PhysicalSpace::point> points);

    [[nodiscard]] std::uint64_t points() const noexcept { return points_; }

    /// An axis (0 is x); nullopt if it has no finite coordinates.
    [[nodiscard]] std::optional<Axis> axis(std::size_t number) const;

private:
    static constexpr int finestDecimal = 9;

    struct Progress {
        double lower;
        double upper;
        int decimals; // finestDecimal + 1 means no step
        /// The same for multiples that are rounded to 32-bit floats; as long as areFloats.
        int floatDecimals;
        bool areFloats = true;
        bool isEmpty = true;
    };

    static void lookAtFloats(Progress& axis, std::span<const Geom::PhysicalSpace::point> points,
                             double Geom::PhysicalSpace::point::*coordinate);
    void lookAlong(Progress& axis, std::span<const Geom::PhysicalSpace::point> points,
                   double Geom::PhysicalSpace::point::*coordinate);

    std::array<Progress, axes> axes_{};
    std::uint64_t points_ = 0;
};

} // namespace Tidewatch
