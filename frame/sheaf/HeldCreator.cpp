// SPDX-License-Identifier: Apache-2.0
#include "sheaf/HeldCreator.hpp"

#include "anchor/Error.hpp"

#include <utility>

namespace Sheaf {

HeldCreator::HeldCreator(Anchor::StrongPtr<MemBase> array) : array_(std::move(array)) {
    if (!array_)
        throw Anchor::ModelError("a creator without an array to hold");
}

HeldCreator::~HeldCreator() = default;

Anchor::StrongPtr<Anchor::Cacheable> HeldCreator::create(bool) const {
    return array_;
}

const std::type_info& HeldCreator::elementType() const noexcept {
    return array_->elementType();
}

std::optional<Extents> HeldCreator::extents() const {
    return array_->extents();
}

Anchor::StrongPtr<Anchor::Cacheable> HeldCreator::available() const {
    return array_;
}

} // namespace Sheaf
