// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <span>
#include <type_traits>

/// Puts numbers and texts one after the other into memory as LAS files hold them: little-endian, unaligned,
/// texts padded with zeros. The caller sees to the room.
class LittleEndianWriter {
public:
    explicit LittleEndianWriter(char* to) noexcept : to_(to) {}

    template <class T>
    LittleEndianWriter& put(T value) noexcept {
        static_assert(std::is_arithmetic_v<T>);
        auto bytes = std::bit_cast<std::array<char, sizeof(T)>>(value);
        if constexpr (std::endian::native == std::endian::big)
            std::reverse(bytes.begin(), bytes.end());
        std::memcpy(to_, bytes.data(), sizeof(T));
        to_ += sizeof(T);
        return *this;
    }

    template <class T, std::size_t count>
    LittleEndianWriter& put(const T (&values)[count]) noexcept {
        for (const T value : values)
            put(value);
        return *this;
    }

    LittleEndianWriter& put(std::span<const unsigned char> bytes) noexcept {
        if (!bytes.empty())
            std::memcpy(to_, bytes.data(), bytes.size());
        to_ += bytes.size();
        return *this;
    }

    /// The place of the next byte.
    [[nodiscard]] char* position() const noexcept { return to_; }

private:
    char* to_;
};
