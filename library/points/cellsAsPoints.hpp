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

/// A copy of a bundle in which lattices are converted to points: the centres of cells that have a value, in
/// the order of the lattice, with heights from a field and with all other fields. Points remain as they are.
///
/// A cell has no value if its height is not finite, or if the field of cell types, which the points do not
/// have, is 0. Grids that are not selected stay as they are. Arrays are created on demand; see choosePoints()
/// for the result and `mayGoOn`. Adds the names of the fields used to `fieldsRead`.
///
/// Throws Anchor::ModelError, naming the grid, if there is no such numeric field.
[[nodiscard]] ChosenPoints cellsAsPoints(const Sheaf::Bundle& from, const CellOptions& options,
                                         const Selection& selection, std::set<std::string>& fieldsRead,
                                         const std::function<void()>& mayGoOn = {});

/// Whether positions of a grid's vertices are a lattice, as far as is known before arrays are made.
[[nodiscard]] bool hasCells(const Sheaf::Grid& grid);

/// What may be said to a user who wanted points of a lattice.
inline constexpr std::string_view cellsRemedy = "; --cells-as-points makes points of its cells";

} // namespace Tidewatch
