// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/TypedChunk.hpp"
#include "sheaf/MemBase.hpp"

#include <utility>

namespace Sheaf {

/// An array of elements of type T in memory, of any rank: the elements are in a chunk in storage order.
template <class T>
class TIDEWATCH_API TypedArray : public MemBase {
public:
    ~TypedArray() override = default;

    [[nodiscard]] const std::type_info& elementType() const noexcept override { return typeid(T); }
    [[nodiscard]] std::uint64_t byteSize() const noexcept override {
        return chunk_->base_vector().capacity() * sizeof(T);
    }

    /// The memory that holds the elements; never null.
    [[nodiscard]] const Anchor::StrongPtr<Anchor::TypedChunk<T>>& chunk() const noexcept { return chunk_; }

    /// The elements in storage order, x fastest.
    [[nodiscard]] std::vector<T>& base_vector() noexcept { return chunk_->base_vector(); }
    [[nodiscard]] const std::vector<T>& base_vector() const noexcept { return chunk_->base_vector(); }

protected:
    TypedArray(const Extents& extents, Anchor::StrongPtr<Anchor::TypedChunk<T>> chunk)
        : MemBase(extents),
          chunk_(std::move(chunk)) {}

private:
    Anchor::StrongPtr<Anchor::TypedChunk<T>> chunk_;
};

} // namespace Sheaf
