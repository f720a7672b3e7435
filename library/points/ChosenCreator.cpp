// SPDX-License-Identifier: Apache-2.0
#include "library/points/ChosenCreator.hpp"

#include "anchor/Error.hpp"
#include "sheaf/MemArray.hpp"

#include <utility>

namespace Tidewatch {

ChosenCreator::ChosenCreator(std::shared_ptr<Family> family, Sheaf::Field::Creator whole)
    : CachedCreator(whole->elementType(), Sheaf::Extents{family->mask().elements()}),
      family_(std::move(family)),
      whole_(std::move(whole)) {}

ChosenCreator::~ChosenCreator() = default;

Anchor::StrongPtr<ChosenCreator> ChosenCreator::make(const std::shared_ptr<Family>& family,
                                                     Sheaf::Field::Creator whole) {
    Anchor::StrongPtr<ChosenCreator> creator(new ChosenCreator(family, std::move(whole)));
    const std::lock_guard lock(family->mutex_);
    family->members_.emplace_back(creator);
    return creator;
}

std::optional<Sheaf::Extents> ChosenCreator::extents() const {
    const FragmentMask& mask = family_->mask();
    return Sheaf::Extents{mask.knownCount().value_or(mask.elements())};
}

std::uint64_t ChosenCreator::bytesToMake() const {
    const std::uint64_t count = family_->mask().chosen().count();
    std::uint64_t bytes = 0;
    Sheaf::visitElementType(elementType(),
                            [&](auto tag) { bytes = count * sizeof(typename decltype(tag)::type); });
    return bytes;
}

Anchor::StrongPtr<Sheaf::MemBase> ChosenCreator::chosenPart() const {
    const ElementSet& chosen = family_->mask().chosen();
    const auto whole = whole_->create(false);
    Anchor::StrongPtr<Sheaf::MemBase> part;
    Sheaf::visitElementType(elementType(), [&](auto tag) {
        using T = typename decltype(tag)::type;
        const auto array = Anchor::dynamicCast<Sheaf::TypedArray<T>>(whole);
        if (!array || array->base_vector().size() != chosen.size())
            return;
        std::vector<T> elements;
        elements.reserve(chosen.count());
        chosen.forEach(
            [&, from = array->base_vector().data()](std::size_t i) { elements.push_back(from[i]); });
        part = Sheaf::makeArray(std::move(elements));
    });
    if (!part)
        throw Anchor::ModelError(
            family_->where_ +
            ": an array is not of the stated type and size, so nothing can be chosen from it");
    return part;
}

Sheaf::CachedCreator::Made ChosenCreator::make() const {
    Made made{chosenPart()};
    std::vector<Anchor::StrongPtr<ChosenCreator>> others;
    {
        const std::lock_guard lock(family_->mutex_);
        for (const auto& member : family_->members_) {
            if (auto other = member.lock(); other && other.get() != this)
                others.push_back(std::move(other));
        }
    }
    for (const auto& other : others) {
        // Arrays held by a host need no caching.
        if (!other->whole_->mayBeEdited() && other->whole_->available() && !other->available())
            made.siblings.push_back({other, other->chosenPart()});
    }
    return made;
}

} // namespace Tidewatch
