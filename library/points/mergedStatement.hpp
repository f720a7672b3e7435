// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sheaf/Grid.hpp"

#include <span>
#include <string>
#include <vector>

namespace Tidewatch {

/// A grid to be merged with others.
struct MergePart {
    std::string file;
    Anchor::StrongPtr<Sheaf::Grid> grid;
    /// The index of its input.
    std::size_t input = 0;
};

/// The statement of a merged grid, without its coordinate reference system. Adds notes for users to `notes`.
/// Throws Anchor::ModelError, naming two files, if GPS times have different encodings.
[[nodiscard]] Sheaf::FileStatement mergedStatement(std::span<const MergePart> parts,
                                                   std::vector<std::string>& notes);

/// Sets the coordinate reference system of a merged grid, and the records that state it. Adds notes for users
/// to `notes`. Throws Anchor::ModelError, naming two files, if parts state different systems.
void mergeSystems(std::span<const MergePart> parts, Sheaf::Grid& to, std::vector<std::string>& notes);

} // namespace Tidewatch
