// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Support {

namespace Detail {

inline std::uint32_t byteAt(const std::string& file, std::size_t place) {
    return static_cast<unsigned char>(file[place]);
}

inline std::uint64_t numberAt(const std::string& file, std::size_t place, std::size_t size) {
    std::uint64_t value = 0;
    for (std::size_t i = size; i-- > 0;)
        value = value << 8 | byteAt(file, place + i);
    return value;
}

inline std::uint32_t turned(std::uint32_t value, int bits) {
    return value << bits | value >> (32 - bits);
}

/// Bob Jenkins' hash "lookup3" with start value 0, HDF5's checksum of metadata.
inline std::uint32_t lookup3(const std::string& file, std::size_t start, std::size_t end) {
    std::uint32_t a = 0xdeadbeef + static_cast<std::uint32_t>(end - start);
    std::uint32_t b = a;
    std::uint32_t c = a;
    if (start == end)
        return c;
    const auto add = [&](std::size_t place, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i)
            (i < 4 ? a : i < 8 ? b : c) += byteAt(file, place + i) << (i % 4 * 8);
    };
    for (; end - start > 12; start += 12) {
        add(start, 12);
        a -= c, a ^= turned(c, 4), c += b;
        b -= a, b ^= turned(a, 6), a += c;
        c -= b, c ^= turned(b, 8), b += a;
        a -= c, a ^= turned(c, 16), c += b;
        b -= a, b ^= turned(a, 19), a += c;
        c -= b, c ^= turned(b, 4), b += a;
    }
    add(start, end - start);
    c ^= b, c -= turned(b, 14);
    a ^= c, a -= turned(c, 11);
    b ^= a, b -= turned(a, 25);
    c ^= b, c -= turned(b, 16);
    a ^= c, a -= turned(c, 4);
    b ^= a, b -= turned(a, 14);
    c ^= b, c -= turned(b, 24);
    return c;
}

/// Puts the checksum of a block behind it, where the file has room for that.
inline void sign(std::string& file, std::size_t start, std::uint64_t size) {
    if (start > file.size() || size > file.size() - start || file.size() - start - size < 4)
        return;
    const std::uint32_t sum = lookup3(file, start, start + size);
    for (std::size_t i = 0; i < 4; ++i)
        file[start + size + i] = static_cast<char>(sum >> (8 * i));
}

} // namespace Detail

/// Makes the checksums of a damaged HDF5 file fit its content again, as somebody who damages a file on purpose
/// would: those of the superblock, of object headers and their continuations, and of the indexes of small
/// chunked datasets. Otherwise hardly any damage to a newer file gets past the first check.
inline void repairChecksums(std::string& file) {
    using namespace Detail;
    if (file.size() > 48 && byteAt(file, 8) >= 2)
        sign(file, 0, 44);
    for (std::size_t place = 0; place + 32 < file.size(); ++place) {
        const std::string_view signature = std::string_view(file).substr(place, 4);
        if (signature == "OHDR") {
            const std::uint32_t flags = byteAt(file, place + 5);
            const std::size_t prefix = 6 + ((flags & 0x20) != 0 ? 16u : 0u) + ((flags & 0x10) != 0 ? 4u : 0u);
            const std::size_t sizeBytes = std::size_t{1} << (flags & 3);
            if (place + prefix + sizeBytes <= file.size())
                sign(file, place, prefix + sizeBytes + numberAt(file, place + prefix, sizeBytes));
        } else if (signature == "OCHK") {
            // The size of a continuation stands where its address does.
            for (std::size_t i = 0; i + 16 <= file.size(); ++i) {
                if (numberAt(file, i, 8) == place && numberAt(file, i + 8, 8) >= 8)
                    sign(file, place, numberAt(file, i + 8, 8) - 4);
            }
        } else if (signature == "FAHD") {
            sign(file, place, 24);
        } else if (signature == "EAHD") {
            sign(file, place, 68);
        } else if (signature == "BTHD") {
            sign(file, place, 34);
        } else if (signature == "FRHP") {
            sign(file, place, 142);
        }
    }
}

} // namespace Support
