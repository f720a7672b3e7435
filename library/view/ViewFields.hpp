// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/input/Filters.hpp"
#include "sheaf/Representation.hpp"
#include "sheaf/Skeleton.hpp"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace Tidewatch {

/// A component of a field that a view can show.
struct ViewField {
    /// Shown to users: the field's name, and the component's if there are several.
    std::string label;
    Anchor::StrongPtr<Sheaf::Field> field;
    std::size_t component = 0;
    /// The role as in docs/view-page.md: "class", "red", ...; empty for others.
    std::string role;
};

/// The components of all chosen fields except Positions, in the order of the fields. Fields named like
/// attributes of LAS points have their roles; three bands of bytes have those of the colours of a picture.
[[nodiscard]] std::vector<ViewField> viewFields(const Sheaf::Representation& representation,
                                                Selection& selection);

/// The field whose values are the heights of a lattice: Height, Elevation, Z or Band1, else the first
/// floating-point field, else the first other field except cell types. Empty if there is none, and for
/// pictures.
[[nodiscard]] std::string heightField(const std::vector<ViewField>& fields);

/// Whether the positions are a flat lattice; throws what creators throw.
[[nodiscard]] bool isLattice(const Sheaf::Representation& representation);

/// The field of the types of a lattice's cells; 0 means not surveyed.
inline constexpr const char* cellTypeField = "CellType";

} // namespace Tidewatch
