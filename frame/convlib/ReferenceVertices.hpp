// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "sheaf/Grid.hpp"

#include <string>

namespace ConvLib {

/// The vertices of a grid from which every exporter starts.
struct ReferenceVertices {
    /// The vertex skeleton of the highest refinement that is the same in every direction; null if there is none.
    Anchor::StrongPtr<Sheaf::Skeleton> skeleton;
    /// Its representation in the grid's default chart if that has Positions, else null: a grid without it is not
    /// exported.
    Anchor::StrongPtr<Sheaf::Representation> representation;
};

/// Finds the reference vertices of a grid; changes nothing and creates no array.
[[nodiscard]] TIDEWATCH_API ReferenceVertices findReferenceVertices(const Sheaf::Grid& grid);

/// Why there is no representation, as a text for the user; empty if there is one.
[[nodiscard]] TIDEWATCH_API std::string whyNoReference(const ReferenceVertices& reference);

} // namespace ConvLib
