// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace Tidewatch::Hdf5 {

/// Decodes an unsigned little-endian number of `size` bytes (max 8), all of which must be in the block.
[[nodiscard]] inline std::uint64_t littleEndian(std::span<const unsigned char> block, std::size_t offset,
                                                std::size_t size) noexcept {
    std::uint64_t value = 0;
    for (std::size_t i = size; i-- > 0;)
        value = value << 8 | block[offset + i];
    return value;
}

} // namespace Tidewatch::Hdf5
