// SPDX-License-Identifier: Apache-2.0
#include "sheaf/CreativeArrayBase.hpp"

#include "anchor/StrongPtr.hpp"
#include "sheaf/MemArray.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <algorithm>
#include <cstddef>
#include <span>

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

namespace {

using Bounds = Anchor::StrongPtr<Geom::BoundingBox, Anchor::InterfaceBase>;

bool expandByArray(Geom::BoundingBox& box, const Anchor::StrongPtr<Anchor::Cacheable>& data,
                   const std::function<void()>& mayGoOn) {
    if (const auto lattice = Anchor::dynamicCast<UniformCartesianArray>(data)) {
        lattice->expand(box);
        return true;
    }
    const auto points = Anchor::dynamicCast<TypedArray<Geom::PhysicalSpace::point>>(data);
    if (!points)
        return false;
    constexpr std::size_t block = 65536;
    std::span<const Geom::PhysicalSpace::point> rest = points->base_vector();
    while (!rest.empty()) {
        if (mayGoOn)
            mayGoOn();
        const std::size_t size = std::min(block, rest.size());
        for (const Geom::PhysicalSpace::point& p : rest.first(size))
            box.expand(p);
        rest = rest.subspan(size);
    }
    return true;
}

/// `hasArray` is true if there was an array or remembered bounds of one.
Bounds findBounds(const CreativeArrayBase& creator, bool mayCreate, const std::function<void()>& mayGoOn,
                  bool& hasArray) {
    hasArray = true;
    if (auto known = creator.knownBounds())
        return known;
    const auto data = mayCreate ? creator.create(false) : creator.available();
    hasArray = data != nullptr;
    Bounds bounds(new Geom::BoundingBox);
    if (!expandByArray(*bounds, data, mayGoOn))
        return nullptr;
    // Nobody edits a lattice.
    if (!creator.mayBeEdited() || Anchor::dynamicCast<UniformCartesianArray>(data))
        creator.rememberBounds(bounds);
    return bounds;
}

} // namespace

Bounds boundsOf(const CreativeArrayBase& creator, bool mayCreate, const std::function<void()>& mayGoOn) {
    bool hasArray = false;
    return findBounds(creator, mayCreate, mayGoOn, hasArray);
}

bool ExpandBBox(Geom::BoundingBox& box, const CreativeArrayBase& creator, bool mayCreate) {
    bool hasArray = false;
    if (const Bounds bounds = findBounds(creator, mayCreate, {}, hasArray))
        box.expand(*bounds);
    return hasArray;
}

} // namespace Sheaf
