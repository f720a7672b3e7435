// SPDX-License-Identifier: Apache-2.0
#include "sheaf/RepresentationMap.hpp"

#include "anchor/Error.hpp"
#include "sheaf/Skeleton.hpp"

#include <algorithm>
#include <typeinfo>

namespace Sheaf {

BaseSpace::~BaseSpace() = default;
CartesianChart::~CartesianChart() = default;
RepresentationMap::ConstIterator::~ConstIterator() = default;

bool BaseSpace::precedes(const BaseSpace& other) const noexcept {
    const auto* const chart = dynamic_cast<const CartesianChart*>(this);
    const auto* const otherChart = dynamic_cast<const CartesianChart*>(&other);
    if (chart != nullptr || otherChart != nullptr)
        return chart != nullptr && (otherChart == nullptr || chart->name() < otherChart->name());
    const auto* const skeleton = dynamic_cast<const Skeleton*>(this);
    const auto* const otherSkeleton = dynamic_cast<const Skeleton*>(&other);
    if (skeleton != nullptr || otherSkeleton != nullptr)
        return skeleton != nullptr && (otherSkeleton == nullptr || skeleton->key() < otherSkeleton->key());
    return false;
}

Anchor::StrongPtr<Representation>
RepresentationMap::operator()(const Anchor::StrongPtr<BaseSpace>& space) const {
    const auto found = std::find_if(entries_.begin(), entries_.end(),
                                    [&](const Entry& entry) { return entry.space == space; });
    return found != entries_.end() ? found->representation : nullptr;
}

Anchor::StrongPtr<Representation> RepresentationMap::make(const Anchor::StrongPtr<BaseSpace>& space) {
    if (!space)
        throw Anchor::ModelError("a representation without a base space");
    if (auto existing = (*this)(space))
        return existing;
    const auto place =
        std::upper_bound(entries_.begin(), entries_.end(), space, [](const auto& wanted, const Entry& entry) {
            return wanted->precedes(*entry.space);
        });
    return entries_.insert(place, {space, Anchor::makeStrong<Representation>()})->representation;
}

void RepresentationMap::iterate(ConstIterator& visitor) const {
    forEach([&](const BaseSpace& space, const Representation& representation) {
        return visitor.apply(space, representation);
    });
}

bool RepresentationMap::forEach(
    const std::function<bool(const BaseSpace&, const Representation&)>& visit) const {
    for (const Entry& entry : entries_) {
        if (!visit(*entry.space, *entry.representation))
            return false;
    }
    return true;
}

} // namespace Sheaf
