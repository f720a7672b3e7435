// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/hdf5/metadataChecksum.hpp"

#include <bit>
#include <cstddef>

namespace Tidewatch::Hdf5 {

std::uint32_t metadataChecksum(std::span<const unsigned char> block) {
    constexpr std::size_t roundSize = 12;
    std::uint32_t a = 0xdeadbeef + static_cast<std::uint32_t>(block.size());
    std::uint32_t b = a;
    std::uint32_t c = a;
    if (block.empty())
        return c;
    const auto add = [&](std::span<const unsigned char> bytes) {
        for (std::size_t i = 0; i < bytes.size(); ++i)
            (i < 4 ? a : i < 8 ? b : c) += std::uint32_t{bytes[i]} << (i % 4 * 8);
    };
    // All but the last round, which may be shorter, mix the three words back and forth.
    const auto mix = [](std::uint32_t& x, std::uint32_t y, std::uint32_t& z, int bits) {
        x = (x - z) ^ std::rotl(z, bits);
        z += y;
    };
    for (; block.size() > roundSize; block = block.subspan(roundSize)) {
        add(block.first(roundSize));
        mix(a, b, c, 4);
        mix(b, c, a, 6);
        mix(c, a, b, 8);
        mix(a, b, c, 16);
        mix(b, c, a, 19);
        mix(c, a, b, 4);
    }
    add(block);
    const auto finish = [](std::uint32_t& x, std::uint32_t y, int bits) { x = (x ^ y) - std::rotl(y, bits); };
    finish(c, b, 14);
    finish(a, c, 11);
    finish(b, a, 25);
    finish(c, b, 16);
    finish(a, c, 4);
    finish(b, a, 14);
    finish(c, b, 24);
    return c;
}

} // namespace Tidewatch::Hdf5
