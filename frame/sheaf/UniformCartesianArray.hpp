// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "geom/BoundingBox.hpp"
#include "geom/PhysicalSpace.hpp"
#include "sheaf/MemBase.hpp"

namespace Sheaf {

/// Positions on a regular lattice, computed instead of stored: place (i, j, k) is at origin + (i * spacing.x,
/// j * spacing.y, k * spacing.z).
///
/// It is not a TypedArray, so code that needs points in memory skips it.
class TIDEWATCH_API UniformCartesianArray final : public MemBase {
public:
    UniformCartesianArray(const Geom::PhysicalSpace::point& origin,
                          const Geom::PhysicalSpace::vector& spacing, const MultiIndex<3>& extents);
    ~UniformCartesianArray() override;

    [[nodiscard]] const std::type_info& elementType() const noexcept override;
    [[nodiscard]] std::uint64_t byteSize() const noexcept override { return sizeof *this; }

    /// The position of place (0, 0, 0).
    [[nodiscard]] const Geom::PhysicalSpace::point& origin() const noexcept { return origin_; }
    /// The step from place to place along each axis, in coordinate units.
    [[nodiscard]] const Geom::PhysicalSpace::vector& spacing() const noexcept { return spacing_; }

    /// Extends the box by the lattice; an empty lattice changes nothing.
    void expand(Geom::BoundingBox& box) const noexcept;

private:
    Geom::PhysicalSpace::point origin_;
    Geom::PhysicalSpace::vector spacing_;
};

} // namespace Sheaf
