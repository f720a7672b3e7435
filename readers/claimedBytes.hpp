// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sheaf/Extents.hpp"

#include <cstdint>
#include <optional>
#include <vector>

namespace Tidewatch {

/// The bytes of an array as a file states it, for comparison with ReadOptions::MaximumArrayBytes; nothing
/// where they exceed 64 bits. An extent of 0 counts as 1: an array without elements takes no memory, but
/// whoever goes through its rows takes the time, and text exporters write a line for each of them.
[[nodiscard]] inline std::optional<std::uint64_t> claimedBytes(const Sheaf::Extents& extents,
                                                               std::uint64_t elementSize) {
    std::vector<std::uint64_t> counted;
    for (std::size_t axis = 0; axis < extents.rank(); ++axis)
        counted.push_back(extents[axis] != 0 ? extents[axis] : 1);
    return Sheaf::Extents(counted).byteCount(elementSize);
}

} // namespace Tidewatch
