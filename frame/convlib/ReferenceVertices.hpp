// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "anchor/Visibility.hpp"
#include "sheaf/Grid.hpp"
#include "sheaf/Representation.hpp"
#include "sheaf/Skeleton.hpp"

#include <string>

namespace ConvLib {

/// The vertices of a grid that exporters go by: those of the highest homogeneous refinement that is not above
/// 100 000 000, in the grid's default chart.
struct ReferenceVertices {
    /// Null where the grid has no such vertices.
    Anchor::StrongPtr<Sheaf::Skeleton> skeleton;
    /// Null where they have no field "Positions" in the default chart.
    Anchor::StrongPtr<Sheaf::Representation> representation;
};

/// Changes nothing in the grid.
[[nodiscard]] TIDEWATCH_API ReferenceVertices findReferenceVertices(const Sheaf::Grid& grid);

/// For people: why a grid has no reference; empty where it has one.
[[nodiscard]] TIDEWATCH_API std::string whyNoReference(const ReferenceVertices& reference);

} // namespace ConvLib
