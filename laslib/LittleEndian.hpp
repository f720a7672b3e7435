// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "formats/littleEndian.hpp"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>

/// Writes consecutive numbers and texts to memory as in LAS files: little-endian, unaligned, texts padded
/// with zeros. The caller provides enough space.
class LittleEndianWriter {
public:
    explicit LittleEndianWriter(char* to) noexcept : to_(to) {}

    template <class T>
    LittleEndianWriter& put(T value) noexcept {
        static_assert(std::is_arithmetic_v<T>);
        Formats::storeLittleEndian(reinterpret_cast<std::uint8_t*>(to_), value);
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
