// SPDX-License-Identifier: Apache-2.0
#include "library/points/ZeroCreator.hpp"

#include "sheaf/MemArray.hpp"

#include <utility>
#include <vector>

namespace Tidewatch {

ZeroCreator::ZeroCreator(const std::type_info& elementType, Sheaf::Field::Creator asLongAs)
    : CachedCreator(elementType, Sheaf::Extents{0}),
      other_(std::move(asLongAs)) {}

ZeroCreator::~ZeroCreator() = default;

std::optional<Sheaf::Extents> ZeroCreator::extents() const {
    const auto other = other_->extents();
    return other ? std::optional(Sheaf::Extents{other->elementCount().value_or(0)}) : std::nullopt;
}

std::uint64_t ZeroCreator::count() const {
    const auto array = Anchor::dynamicCast<Sheaf::MemBase>(other_->create(false));
    return array ? array->extents().elementCount().value_or(0) : 0;
}

std::uint64_t ZeroCreator::bytesToMake() const {
    const std::uint64_t elements = count();
    std::uint64_t bytes = 0;
    Sheaf::visitElementType(elementType(),
                            [&](auto tag) { bytes = elements * sizeof(typename decltype(tag)::type); });
    return bytes;
}

Sheaf::CachedCreator::Made ZeroCreator::make() const {
    Made made;
    Sheaf::visitElementType(elementType(), [&](auto tag) {
        made.array = Sheaf::makeArray(std::vector<typename decltype(tag)::type>(count()));
    });
    return made;
}

} // namespace Tidewatch
