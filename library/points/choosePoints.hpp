// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/input/Filters.hpp"
#include "library/points/PointChoice.hpp"
#include "sheaf/Bundle.hpp"

#include <functional>
#include <string>
#include <vector>

namespace Tidewatch {

/// A bundle of the chosen points of another one, and of the rows and columns of its lattices inside the box.
struct ChosenPoints {
    Anchor::StrongPtr<Sheaf::Bundle> bundle;
    /// What was left out besides points, one text each.
    std::vector<std::string> notes = {};
    /// Determines how many points are chosen, fragment by fragment; until then extents state the most that there can be.
    std::function<void()> count = {};
};

/// Grids that are not selected stay as they are. Arrays are made on demand from those of `from`, whose creators are
/// kept. `mayGoOn`, unless it is empty, is called
/// while points are looked at, so that a host can stop the work by an exception.
///
/// Throws Anchor::ModelError, naming the grid, where a field that decides is missing or holds no integers, where classes
/// or returns are to be chosen from a lattice, and where a field of a fragment has another length than its positions.
[[nodiscard]] ChosenPoints choosePoints(const Sheaf::Bundle& from, const PointChoice& choice, const Selection& selection,
                                        const std::function<void()>& mayGoOn = {});

} // namespace Tidewatch
