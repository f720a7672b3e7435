// SPDX-License-Identifier: Apache-2.0
#include "sheaf/Extents.hpp"

#include "anchor/Error.hpp"

#include <algorithm>
#include <string>

namespace Sheaf {

Extents::Extents(std::span<const std::uint64_t> extents) : rank_(extents.size()) {
    if (rank_ > maximumRank)
        throw Anchor::ModelError("an array of rank " + std::to_string(rank_) + " (at most " +
                                 std::to_string(maximumRank) + " axes are possible)");
    std::copy(extents.begin(), extents.end(), extents_.begin());
}

Extents::Extents(std::initializer_list<std::uint64_t> extents)
    : Extents(std::span<const std::uint64_t>(extents.begin(), extents.size())) {}

std::optional<std::uint64_t> Extents::elementCount() const noexcept {
    return byteCount(1);
}

std::optional<std::uint64_t> Extents::byteCount(std::uint64_t elementSize) const noexcept {
    const auto used = std::span(extents_).first(rank_);
    // A zero anywhere makes an empty array, however large the other extents are.
    if (elementSize == 0 || std::find(used.begin(), used.end(), std::uint64_t{0}) != used.end())
        return 0;
    std::uint64_t product = elementSize;
    for (const std::uint64_t extent : used) {
        if (__builtin_mul_overflow(product, extent, &product))
            return std::nullopt;
    }
    return product;
}

} // namespace Sheaf
