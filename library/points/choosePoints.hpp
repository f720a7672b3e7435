// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/input/Filters.hpp"
#include "library/points/FragmentMask.hpp"
#include "library/points/PointChoice.hpp"
#include "sheaf/Bundle.hpp"

#include <functional>
#include <string>
#include <vector>

namespace Tidewatch {

/// The chosen points of a bundle, and the rows and columns of its lattices inside the box, if there is one.
struct ChosenPoints {
    Anchor::StrongPtr<Sheaf::Bundle> bundle;
    /// Notes on what was left out besides points, one text each.
    std::vector<std::string> notes = {};
    /// Those of the fragments of points; until they are determined, extents state upper bounds.
    std::vector<Anchor::StrongPtr<const FragmentMask>> masks = {};
};

/// Grids that are not selected stay as they are. Arrays are created on demand from those of `from`, whose
/// creators are kept. `mayGoOn`, unless empty, is called regularly while points are tested, and may throw to
/// stop.
///
/// Throws Anchor::ModelError, naming the grid, if a field needed for the choice is missing or does not
/// contain integers, if classes or returns are to be chosen and there are only lattices, and if a field of a
/// fragment has another length than its positions. Lattices beside points stay, and a note says so.
[[nodiscard]] ChosenPoints choosePoints(const Sheaf::Bundle& from, const PointChoice& choice,
                                        const Selection& selection,
                                        const std::function<void()>& mayGoOn = {});

} // namespace Tidewatch
