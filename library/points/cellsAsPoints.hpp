// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/input/Filters.hpp"
#include "library/points/CellOptions.hpp"
#include "library/points/choosePoints.hpp"
#include "sheaf/Bundle.hpp"

#include <functional>
#include <set>
#include <string>
#include <string_view>

namespace Tidewatch {

/// A bundle in which lattices are points: the centres of cells that have a value, in the order of the lattice, at the
/// heights that a field states, with all other fields as they are, and those that are points already as they were.
///
/// A cell has no value where its height is not a finite number, or the field of cell types is 0, which does not become a
/// field of points. Grids that are not selected stay as they are. Arrays are made on demand; see choosePoints() for what else is returned and `mayGoOn`. Adds the
/// names of the fields that decide to `fieldsRead`.
///
/// Throws Anchor::ModelError, naming the grid, where there is no such field of numbers.
[[nodiscard]] ChosenPoints cellsAsPoints(const Sheaf::Bundle& from, const CellOptions& options, const Selection& selection,
                                         std::set<std::string>& fieldsRead,
                                         const std::function<void()>& mayGoOn = {});

/// Whether positions of a grid's vertices are a lattice, as far as is known before arrays are made.
[[nodiscard]] bool hasCells(const Sheaf::Grid& grid);

/// What may be said to a user who wanted points of a lattice.
inline constexpr std::string_view cellsRemedy = "; --cells-as-points makes points of its cells";

} // namespace Tidewatch
