// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "sheaf/Grid.hpp"

#include <string>

namespace ConvLib {

/// The vertices of a grid that every exporter starts from.
struct ReferenceVertices {
    /// The vertex skeleton of the highest refinement that is the same in every direction; null where there is none.
    Anchor::StrongPtr<Sheaf::Skeleton> skeleton;
    /// Its representation in the grid's default chart where that has Positions, else null: a grid without it is not
    /// exported.
    Anchor::StrongPtr<Sheaf::Representation> representation;
};

/// Finds them; changes nothing and makes no array.
[[nodiscard]] TIDEWATCH_API ReferenceVertices findReferenceVertices(const Sheaf::Grid& grid);

/// Why there is no representation, for people; empty where there is one.
[[nodiscard]] TIDEWATCH_API std::string whyNoReference(const ReferenceVertices& reference);

} // namespace ConvLib
