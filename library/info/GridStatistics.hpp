// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/Progress.hpp"
#include "sheaf/Grid.hpp"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace Tidewatch {

/// What the values of a grid's points are.
struct TIDEWATCH_API GridStatistics {
    /// The range of a field's values, or of a component of them ("Positions.x").
    struct Range {
        std::string name;
        /// Numbers of the field that are finite; without any, the ends mean nothing.
        std::uint64_t values = 0;
        std::uint64_t notFinite = 0;
        /// A long double holds the numbers of all types exactly.
        long double lowest = 0;
        long double highest = 0;
        /// Whether values are whole numbers, and whether they have only the precision of a float.
        bool isWhole = false;
        bool isFloat = false;
    };

    std::vector<Range> ranges;
    /// Points by class, and by return number; all zeros without such a field.
    std::array<std::uint64_t, 256> classes{};
    std::array<std::uint64_t, 256> returns{};

    /// Reads all fields of the vertices that exporters use by default, fragment after fragment, each once. `progress`,
    /// which may be null, is told of a piece for each fragment, `pointsBefore` the work done before the first. Throws what
    /// creators and `progress` throw.
    [[nodiscard]] static GridStatistics of(const Sheaf::Grid& grid,
                                           const Anchor::StrongPtr<Progress>& progress = {},
                                           std::uint64_t pointsBefore = 0);
};

} // namespace Tidewatch
