// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sheaf/Grid.hpp"

#include <span>
#include <string>
#include <vector>

namespace Tidewatch {

/// A grid that is to be merged with others.
struct MergePart {
    std::string file;
    Anchor::StrongPtr<Sheaf::Grid> grid;
    /// The number of its input.
    std::size_t input = 0;
};

/// What a grid states that holds the points of others, except for its coordinate reference system. Adds what is worth
/// knowing to `notes`. Throws Anchor::ModelError, naming two files, where GPS times count from different days.
[[nodiscard]] Sheaf::FileStatement mergedStatement(std::span<const MergePart> parts,
                                                   std::vector<std::string>& notes);

/// Gives a grid the coordinate reference system that parts state, and the records that say it. Adds what is worth knowing
/// to `notes`. Throws Anchor::ModelError, naming two files, where parts state different ones.
void mergeSystems(std::span<const MergePart> parts, Sheaf::Grid& to, std::vector<std::string>& notes);

} // namespace Tidewatch
