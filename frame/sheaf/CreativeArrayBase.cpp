// SPDX-License-Identifier: Apache-2.0
#include "sheaf/CreativeArrayBase.hpp"

#include "anchor/StrongPtr.hpp"
#include "sheaf/MemArray.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <algorithm>
#include <cstddef>
#include <span>
#include <vector>

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
                   const std::function<void()>& mayGoOn, Anchor::Workers* workers) {
    if (const auto lattice = Anchor::dynamicCast<UniformCartesianArray>(data)) {
        lattice->expand(box);
        return true;
    }
    const auto points = Anchor::dynamicCast<TypedArray<Geom::PhysicalSpace::point>>(data);
    if (!points)
        return false;
    constexpr std::size_t block = 65536;
    const std::span<const Geom::PhysicalSpace::point> all = points->base_vector();
    std::vector<Geom::BoundingBox> boxes((all.size() + block - 1) / block);
    Anchor::runPieces(
        workers, boxes.size(),
        [&](std::size_t i) {
            const auto rest = all.subspan(i * block);
            for (const Geom::PhysicalSpace::point& p : rest.first(std::min(block, rest.size())))
                boxes[i].expand(p);
        },
        mayGoOn);
    for (const Geom::BoundingBox& part : boxes)
        box.expand(part);
    return true;
}

/// `hasArray` is true if there was an array or remembered bounds of one.
Bounds findBounds(const CreativeArrayBase& creator, bool mayCreate, const std::function<void()>& mayGoOn,
                  Anchor::Workers* workers, bool& hasArray) {
    hasArray = true;
    if (auto known = creator.knownBounds())
        return known;
    const auto data = mayCreate ? creator.create(false) : creator.available();
    hasArray = data != nullptr;
    Bounds bounds(new Geom::BoundingBox);
    if (!expandByArray(*bounds, data, mayGoOn, workers))
        return nullptr;
    // Nobody edits a lattice.
    if (!creator.mayBeEdited() || Anchor::dynamicCast<UniformCartesianArray>(data))
        creator.rememberBounds(bounds);
    return bounds;
}

} // namespace

Bounds boundsOf(const CreativeArrayBase& creator, bool mayCreate, const std::function<void()>& mayGoOn,
                Anchor::Workers* workers) {
    bool hasArray = false;
    return findBounds(creator, mayCreate, mayGoOn, workers, hasArray);
}

bool ExpandBBox(Geom::BoundingBox& box, const CreativeArrayBase& creator, bool mayCreate) {
    bool hasArray = false;
    if (const Bounds bounds = findBounds(creator, mayCreate, {}, nullptr, hasArray))
        box.expand(*bounds);
    return hasArray;
}

} // namespace Sheaf
