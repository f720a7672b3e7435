// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <numeric>
#include <span>

namespace Tidewatch::Hdf5 {

/// The product of extents, which must fit 64 bits.
[[nodiscard]] inline std::uint64_t product(std::span<const std::uint64_t> extents) {
    return std::accumulate(extents.begin(), extents.end(), std::uint64_t{1}, std::multiplies<>());
}

/// Walks an array in blocks: moves `place`, the first number of the current block, to that of the next one,
/// along the last axis first; false, and back at the beginning, after the last one. All three have one entry
/// per axis; extents and steps are not 0.
[[nodiscard]] inline bool advance(std::span<std::uint64_t> place, std::span<const std::uint64_t> extents,
                                  std::span<const std::uint64_t> steps) {
    for (std::size_t axis = place.size(); axis-- > 0;) {
        // Written so that no sum can exceed 64 bits.
        if (extents[axis] - place[axis] > steps[axis]) {
            place[axis] += steps[axis];
            return true;
        }
        place[axis] = 0;
    }
    return false;
}

} // namespace Tidewatch::Hdf5
