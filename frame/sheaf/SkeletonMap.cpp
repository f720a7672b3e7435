// SPDX-License-Identifier: Apache-2.0
#include "sheaf/SkeletonMap.hpp"

#include "anchor/Error.hpp"

#include <limits>
#include <string>

namespace Sheaf {

ConstSkeletonIterator::~ConstSkeletonIterator() = default;

Anchor::StrongPtr<Skeleton> SkeletonMap::findVertices(int level) const {
    if (level == -1)
        return findHighestVertices(std::numeric_limits<int>::max());
    for (const auto& [key, skeleton] : skeletons_) {
        if (key.dimension == 0 && skeleton->isHomogeneous() && skeleton->refinementLevel() == level)
            return skeleton;
    }
    return nullptr;
}

Anchor::StrongPtr<Skeleton> SkeletonMap::findHighestVertices(int bound) const {
    Anchor::StrongPtr<Skeleton> highest;
    for (const auto& [key, skeleton] : skeletons_) {
        if (key.dimension != 0 || !skeleton->isHomogeneous() || skeleton->refinementLevel() > bound)
            continue;
        if (!highest || skeleton->refinementLevel() > highest->refinementLevel())
            highest = skeleton;
    }
    return highest;
}

void SkeletonMap::iterate(ConstSkeletonIterator& visitor) const {
    iterate_all(
        [&](const FieldFragment& stop) { return visitor.apply(stop.skeleton, stop.id.name(), stop.data); });
}

void SkeletonMap::iterate_all(const std::function<bool(const FieldFragment&)>& visit) const {
    bool goOn = true;
    forEach([&](const Skeleton& skeleton) {
        skeleton.representations().forEach([&](const BaseSpace& space, const Representation& representation) {
            representation.forEachField([&](const FieldID& id, const Field& field) {
                field.forEachFragment(
                    [&](const Anchor::StrongPtr<FragmentID>& fragment, const Field::Creator& data) {
                        goOn = visit({skeleton, space, representation, id, field, fragment, data});
                        return goOn;
                    });
                return goOn;
            });
            return goOn;
        });
        return goOn;
    });
}

void SkeletonMap::forEach(const std::function<bool(const Skeleton&)>& visit) const {
    for (const auto& [key, skeleton] : skeletons_) {
        if (!visit(*skeleton))
            return;
    }
}

Anchor::StrongPtr<Skeleton> SkeletonMap::find(const Skeleton::Key& key) const {
    const auto found = skeletons_.find(key);
    return found != skeletons_.end() ? found->second : nullptr;
}

Anchor::StrongPtr<Skeleton> SkeletonMap::make(const Skeleton::Key& key, std::int32_t exclusionMark) {
    const auto [entry, isNew] = skeletons_.try_emplace(key);
    if (!isNew) {
        std::string refinement;
        for (const std::int32_t level : key.refinement)
            refinement += (refinement.empty() ? "" : ", ") + std::to_string(level);
        throw Anchor::ModelError("two skeletons of dimension " + std::to_string(key.dimension) +
                                 " and refinement (" + refinement + ")");
    }
    entry->second = Anchor::makeStrong<Skeleton>(key, exclusionMark);
    return entry->second;
}

} // namespace Sheaf
