// SPDX-License-Identifier: Apache-2.0
#include "sheaf/UniformCartesianArray.hpp"

namespace Sheaf {

UniformCartesianArray::UniformCartesianArray(const Geom::PhysicalSpace::point& origin,
                                             const Geom::PhysicalSpace::vector& spacing,
                                             const MultiIndex<3>& extents)
    : MemBase(Extents(extents)),
      origin_(origin),
      spacing_(spacing) {}

UniformCartesianArray::~UniformCartesianArray() = default;

const std::type_info& UniformCartesianArray::elementType() const noexcept {
    return typeid(Geom::PhysicalSpace::point);
}

void UniformCartesianArray::expand(Geom::BoundingBox& box) const noexcept {
    for (std::size_t axis = 0; axis < 3; ++axis) {
        if (extents()[axis] == 0)
            return;
    }
    const auto last = [&](std::size_t axis) { return static_cast<double>(extents()[axis] - 1); };
    box.expand(origin_);
    box.expand(Geom::PhysicalSpace::point{origin_.x + last(0) * spacing_.x, origin_.y + last(1) * spacing_.y,
                                          origin_.z + last(2) * spacing_.z});
}

} // namespace Sheaf
