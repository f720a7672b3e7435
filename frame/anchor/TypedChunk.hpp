// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"

#include <cstddef>
#include <utility>
#include <vector>

namespace Anchor {

/// A contiguous block of elements of one type, shared by reference.
template <class T>
class TIDEWATCH_API TypedChunk : public ReferenceBase<TypedChunk<T>> {
public:
    TypedChunk() = default;
    explicit TypedChunk(std::size_t count) : elements_(count) {}
    explicit TypedChunk(std::vector<T> elements) : elements_(std::move(elements)) {}
    ~TypedChunk() override = default;

    [[nodiscard]] std::vector<T>& base_vector() noexcept { return elements_; }
    [[nodiscard]] const std::vector<T>& base_vector() const noexcept { return elements_; }

private:
    std::vector<T> elements_;
};

} // namespace Anchor
