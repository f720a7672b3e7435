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
    /// What people call it: the field's name, and the component's where there are several.
    std::string label;
    Anchor::StrongPtr<Sheaf::Field> field;
    std::size_t component = 0;
    /// What the component is, as docs/view-page.md names it: "class", "red", ...; empty for others.
    std::string role;
};

/// The components of all fields that are chosen but Positions, in the order of the fields. Fields named like attributes of
/// LAS points have their roles; so have three bands of bytes, as the colours of a picture.
[[nodiscard]] std::vector<ViewField> viewFields(const Sheaf::Representation& representation,
                                                Selection& selection);

/// The field whose values are the heights of a lattice: Height, Elevation, Z or Band1, else the first of floating-point
/// numbers, else the first of numbers but cell types. Empty where there is none, and for pictures.
[[nodiscard]] std::string heightField(const std::vector<ViewField>& fields);

/// Whether the positions stand on a flat lattice; throws what creators throw.
[[nodiscard]] bool isLattice(const Sheaf::Representation& representation);

/// The field that says of the cells of a lattice what they are: 0 is none that was surveyed.
inline constexpr const char* cellTypeField = "CellType";

} // namespace Tidewatch
