// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Error.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/TypedArray.hpp"

#include <cassert>

namespace Sheaf {

/// An array of rank N over a chunk that has exactly as many elements as the extents say. Element (i, j) is
/// column i of row j; x runs fastest.
template <std::size_t N, class T>
class TIDEWATCH_API MemArray final : public TypedArray<T> {
public:
    static_assert(N >= 1 && N <= Extents::maximumRank);

    /// Throws Anchor::ModelError if the chunk is null or its size is not the product of the extents.
    MemArray(const MultiIndex<N>& extents, Anchor::StrongPtr<Anchor::TypedChunk<T>> chunk)
        : TypedArray<T>(Extents(extents), checked(extents, std::move(chunk))) {}
    ~MemArray() override = default;

    /// The element at a place inside the extents (a precondition; checked by assert only).
    [[nodiscard]] const T& operator()(const MultiIndex<N>& place) const noexcept {
        return this->base_vector()[offset(place)];
    }
    [[nodiscard]] T& operator()(const MultiIndex<N>& place) noexcept {
        return this->base_vector()[offset(place)];
    }

    /// Whether the type is in the TypeRegistry, which sets and clears this flag.
    static bool TypeIsRegistered;

private:
    [[nodiscard]] std::size_t offset(const MultiIndex<N>& place) const noexcept {
        std::uint64_t position = 0;
        for (std::size_t axis = N; axis-- > 0;) {
            assert(place[axis] < this->extents()[axis]);
            position = position * this->extents()[axis] + place[axis];
        }
        return position;
    }

    static Anchor::StrongPtr<Anchor::TypedChunk<T>> checked(const MultiIndex<N>& extents,
                                                            Anchor::StrongPtr<Anchor::TypedChunk<T>> chunk) {
        if (!chunk || Extents(extents).elementCount() != chunk->base_vector().size())
            throw Anchor::ModelError("an array whose extents do not match its number of elements");
        return chunk;
    }
};

// Every array type is compiled only once, in the frame's own library, so that arrays that an exporter library
// leaves behind do not point into that library after it has been unloaded.
#define TIDEWATCH_ARRAYS_OF(TYPE, NAME, COMPONENT, COUNT)                                                    \
    extern template class MemArray<1, TYPE>;                                                                 \
    extern template class MemArray<2, TYPE>;                                                                 \
    extern template class MemArray<3, TYPE>;                                                                 \
    extern template class MemArray<4, TYPE>;
TIDEWATCH_ELEMENT_TYPES(TIDEWATCH_ARRAYS_OF)
#undef TIDEWATCH_ARRAYS_OF

/// Creates a memory array with the given extents (rank 1 to 4) that takes over the elements. Throws
/// Anchor::ModelError if their number is not the product of the extents, and for rank 0.
template <ElementType T>
[[nodiscard]] Anchor::StrongPtr<TypedArray<T>> makeArray(const Extents& extents, std::vector<T> elements) {
    auto chunk = Anchor::makeStrong<Anchor::TypedChunk<T>>(std::move(elements));
    switch (extents.rank()) {
    case 1:
        return Anchor::makeStrong<MemArray<1, T>>(MultiIndex<1>{extents[0]}, std::move(chunk));
    case 2:
        return Anchor::makeStrong<MemArray<2, T>>(MultiIndex<2>{extents[0], extents[1]}, std::move(chunk));
    case 3:
        return Anchor::makeStrong<MemArray<3, T>>(MultiIndex<3>{extents[0], extents[1], extents[2]},
                                                  std::move(chunk));
    case 4:
        return Anchor::makeStrong<MemArray<4, T>>(
            MultiIndex<4>{extents[0], extents[1], extents[2], extents[3]}, std::move(chunk));
    default:
        throw Anchor::ModelError("an array without axes");
    }
}

/// The same for a plain list.
template <ElementType T>
[[nodiscard]] Anchor::StrongPtr<TypedArray<T>> makeArray(std::vector<T> elements) {
    const Extents extents{elements.size()};
    return makeArray(extents, std::move(elements));
}

} // namespace Sheaf
