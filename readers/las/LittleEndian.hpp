// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace Tidewatch::Las {

/// The number whose little-endian bytes stand at `bytes`; sizeof(T) bytes are read, at any alignment.
template <class T>
[[nodiscard]] inline T loadLittleEndian(const std::uint8_t* bytes) noexcept {
    static_assert(std::is_arithmetic_v<T>);
    std::array<std::uint8_t, sizeof(T)> ordered;
    std::memcpy(ordered.data(), bytes, sizeof(T));
    if constexpr (std::endian::native == std::endian::big)
        std::reverse(ordered.begin(), ordered.end());
    return std::bit_cast<T>(ordered);
}

/// Writes a number as little-endian bytes; sizeof(T) bytes are written, at any alignment.
template <class T>
inline void storeLittleEndian(std::uint8_t* bytes, T value) noexcept {
    static_assert(std::is_arithmetic_v<T>);
    auto ordered = std::bit_cast<std::array<std::uint8_t, sizeof(T)>>(value);
    if constexpr (std::endian::native == std::endian::big)
        std::reverse(ordered.begin(), ordered.end());
    std::memcpy(bytes, ordered.data(), sizeof(T));
}

} // namespace Tidewatch::Las
