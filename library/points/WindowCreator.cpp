// SPDX-License-Identifier: Apache-2.0
#include "library/points/WindowCreator.hpp"

#include "anchor/Error.hpp"
#include "sheaf/MemArray.hpp"

#include <span>
#include <utility>

namespace Tidewatch {

namespace {

/// The window's extents, with the rank of the whole.
Sheaf::Extents extentsOf(const Sheaf::CreativeArrayBase& whole, const LatticeWindow& window) {
    const std::size_t rank = whole.extents()->rank();
    return Sheaf::Extents(std::span<const std::uint64_t>(window.count).first(rank));
}

} // namespace

WindowCreator::WindowCreator(Sheaf::Field::Creator whole, const LatticeWindow& window, std::string where)
    : CachedCreator(whole->elementType(), extentsOf(*whole, window)),
      whole_(std::move(whole)),
      window_(window),
      where_(std::move(where)) {}

WindowCreator::~WindowCreator() = default;

std::uint64_t WindowCreator::bytesToMake() const {
    std::uint64_t bytes = 0;
    Sheaf::visitElementType(
        elementType(), [&](auto tag) { bytes = window_.places() * sizeof(typename decltype(tag)::type); });
    return bytes;
}

Sheaf::CachedCreator::Made WindowCreator::make() const {
    const auto whole = whole_->create(false);
    Anchor::StrongPtr<Sheaf::MemBase> part;
    Sheaf::visitElementType(elementType(), [&](auto tag) {
        using T = typename decltype(tag)::type;
        const auto array = Anchor::dynamicCast<Sheaf::TypedArray<T>>(whole);
        if (!array || array->extents() != whole_->extents())
            return;
        const auto along = [&](std::size_t axis) {
            return axis < array->extents().rank() ? array->extents()[axis] : 1;
        };
        const auto& elements = array->base_vector();
        std::vector<T> inside;
        inside.reserve(window_.places());
        for (std::uint64_t z = window_.first[2]; z < window_.first[2] + window_.count[2]; ++z) {
            for (std::uint64_t y = window_.first[1]; y < window_.first[1] + window_.count[1]; ++y) {
                const auto row = elements.begin() + static_cast<std::ptrdiff_t>(
                                                        (z * along(1) + y) * along(0) + window_.first[0]);
                inside.insert(inside.end(), row, row + static_cast<std::ptrdiff_t>(window_.count[0]));
            }
        }
        part = Sheaf::makeArray(*extents(), std::move(inside));
    });
    if (!part)
        throw Anchor::ModelError(
            where_ + ": an array is not of the stated type and size, so no part can be taken of it");
    return {part};
}

} // namespace Tidewatch
