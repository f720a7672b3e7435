// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"
#include "sheaf/MultiIndex.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>

namespace Sheaf {

/// The size of an array: up to four extents (nx, ny, nz, nw), x running fastest in storage.
class TIDEWATCH_API Extents {
public:
    static constexpr std::size_t maximumRank = 4;

    /// Rank 0: a single element without any axis.
    Extents() = default;

    /// Throws Anchor::ModelError for more than `maximumRank` extents.
    explicit Extents(std::span<const std::uint64_t> extents);
    Extents(std::initializer_list<std::uint64_t> extents);
    template <std::size_t N>
    explicit Extents(const MultiIndex<N>& extents) : Extents(std::span<const std::uint64_t>(extents)) {}

    [[nodiscard]] std::size_t rank() const noexcept { return rank_; }

    /// The extent along an axis below the rank.
    [[nodiscard]] std::uint64_t operator[](std::size_t axis) const noexcept { return extents_[axis]; }

    /// The number of elements (1 for rank 0); nullopt if it exceeds 64 bits.
    [[nodiscard]] std::optional<std::uint64_t> elementCount() const noexcept;

    /// The size in bytes of that many elements; nullopt if it exceeds 64 bits.
    [[nodiscard]] std::optional<std::uint64_t> byteCount(std::uint64_t elementSize) const noexcept;

    friend bool operator==(const Extents&, const Extents&) = default;

private:
    std::array<std::uint64_t, maximumRank> extents_{};
    std::size_t rank_ = 0;
};

} // namespace Sheaf
