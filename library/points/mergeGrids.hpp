// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/points/MergeOptions.hpp"
#include "sheaf/Bundle.hpp"

#include <span>
#include <string>
#include <vector>

namespace Tidewatch {

/// A file, and the bundle that was read from it.
struct MergeInput {
    std::string file;
    Anchor::StrongPtr<Sheaf::Bundle> bundle;
};

struct MergedGrids {
    Anchor::StrongPtr<Sheaf::Bundle> bundle;
    /// Notes for users, one text each.
    std::vector<std::string> notes = {};
    /// The source of the merged grids in messages: a short list of the files.
    std::string origin = {};
};

/// A bundle with one grid per time: the points of all inputs. Its fragments are those of the inputs, with
/// "0000-NAME-" before their names, where 0000 counts the inputs and NAME is the name of their grid, so that
/// points keep the order of the inputs. A field that an input lacks has zeros there. Arrays are created on
/// demand from those of the inputs, whose creators are kept.
///
/// The merged grid states what all inputs state equally; the finest step along each axis; of records that
/// differ, the first.
///
/// Throws Anchor::ModelError, naming the files, for two coordinate reference systems, two encodings of GPS times, two
/// element types of one field, lattices, and grids without positions; and where no grid is selected.
[[nodiscard]] MergedGrids mergeGrids(std::span<const MergeInput> inputs, const MergeOptions& options);

} // namespace Tidewatch
