// SPDX-License-Identifier: Apache-2.0
#include "readers/source/claimedBytes.hpp"

#include "sheaf/Extents.hpp"

#include <algorithm>
#include <vector>

namespace Tidewatch {

std::optional<std::uint64_t> claimedBytes(std::span<const std::uint64_t> extents, std::uint64_t elementSize) {
    std::vector<std::uint64_t> counted;
    for (const std::uint64_t extent : extents)
        counted.push_back(std::max<std::uint64_t>(extent, 1));
    return Sheaf::Extents(counted).byteCount(elementSize);
}

} // namespace Tidewatch
