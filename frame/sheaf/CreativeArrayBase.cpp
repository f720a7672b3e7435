// SPDX-License-Identifier: Apache-2.0
#include "sheaf/CreativeArrayBase.hpp"

#include "anchor/StrongPtr.hpp"
#include "sheaf/MemArray.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <utility>

namespace Sheaf {

CreativeArrayBase::~CreativeArrayBase() = default;

Anchor::StrongPtr<Geom::BoundingBox, Anchor::InterfaceBase> CreativeArrayBase::knownBounds() const {
    const std::lock_guard lock(mutex_);
    return bounds_;
}

void CreativeArrayBase::rememberBounds(
    Anchor::StrongPtr<Geom::BoundingBox, Anchor::InterfaceBase> bounds) const {
    const std::lock_guard lock(mutex_);
    bounds_ = std::move(bounds);
}

std::optional<Extents> getSize(const CreativeArrayBase& creator) {
    return creator.extents();
}

bool ExpandBBox(Geom::BoundingBox& box, const CreativeArrayBase& creator, bool mayCreate) {
    if (const auto known = creator.knownBounds()) {
        box.expand(*known);
        return true;
    }
    bool mayBeEdited = creator.mayBeEdited();
    const auto data = mayCreate ? creator.create(false) : creator.available();
    Anchor::StrongPtr<Geom::BoundingBox, Anchor::InterfaceBase> bounds(new Geom::BoundingBox);
    if (const auto lattice = Anchor::dynamicCast<UniformCartesianArray>(data)) {
        lattice->expand(*bounds);
        mayBeEdited = false;
    } else if (const auto points = Anchor::dynamicCast<TypedArray<Geom::PhysicalSpace::point>>(data)) {
        for (const Geom::PhysicalSpace::point& p : points->base_vector())
            bounds->expand(p);
    } else {
        return data != nullptr;
    }
    box.expand(*bounds);
    if (!mayBeEdited)
        creator.rememberBounds(std::move(bounds));
    return true;
}

} // namespace Sheaf
