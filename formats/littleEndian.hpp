// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

/// Numbers as stored in files: little-endian and unaligned. The only place that depends on the byte order of the
/// machine.
namespace Formats {

static_assert(std::endian::native == std::endian::little, "Tidewatch runs on little-endian machines");

/// Reads a number from the sizeof(T) bytes at `bytes`.
template <class T>
[[nodiscard]] inline T loadLittleEndian(const std::uint8_t* bytes) noexcept {
    static_assert(std::is_arithmetic_v<T>);
    std::array<std::uint8_t, sizeof(T)> own;
    std::memcpy(own.data(), bytes, sizeof(T));
    return std::bit_cast<T>(own);
}

/// Writes a number; sizeof(T) bytes are written.
template <class T>
inline void storeLittleEndian(std::uint8_t* bytes, T value) noexcept {
    static_assert(std::is_arithmetic_v<T>);
    std::memcpy(bytes, &value, sizeof(T));
}

} // namespace Formats
