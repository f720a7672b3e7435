// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Workers.hpp"
#include "library/Progress.hpp"
#include "library/input/Filters.hpp"
#include "library/points/TileOptions.hpp"
#include "sheaf/Bundle.hpp"

#include <map>
#include <string>
#include <vector>

namespace Tidewatch {

/// The points of a bundle, cut into squares.
struct TiledPoints {
    Anchor::StrongPtr<Sheaf::Bundle> bundle;
    /// What is to be said of it, one text each.
    std::vector<std::string> notes = {};
    struct Tile {
        /// The grid that its points were in.
        std::string grid;
        /// "432000_5921000"
        std::string name;
    };
    /// Where squares are grids: their squares by the grids' names.
    std::map<std::string, Tile> tiles = {};
};

/// Cuts the points of the selected grids: vertices with positions in the default chart, with all fields of theirs that
/// the selection admits. The points of a square keep the order of the fragments and, within them, their own. Lattices,
/// and grids that are not selected, stay as they are.
///
/// Reads everything once and writes it into a scratch file; arrays are read from there on demand, so what is in memory
/// is one fragment and the memory cache. `workers` and `progress` may be null.
///
/// Throws Anchor::ModelError, naming the grid, for a point without a finite place, for a field whose length differs
/// from that of its positions, and for a grid both with lattices and with points; Anchor::LimitError for more squares
/// than `memoryLimit` bytes can list; Anchor::FileError; and what creators and `progress` throw.
[[nodiscard]] TiledPoints tilePoints(const Sheaf::Bundle& from, const TileOptions& options,
                                     Selection& selection, std::uint64_t memoryLimit,
                                     Anchor::Workers* workers, const Anchor::StrongPtr<Progress>& progress);

} // namespace Tidewatch
