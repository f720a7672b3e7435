// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/Hdf5Checksums.hpp"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <hdf5.h>

namespace Support {

/// A message of an object header as it stands in a file (HDF5 File Format Specification, section IV.A.1).
struct Hdf5Message {
    /// Of its head, and of its content.
    std::size_t head;
    std::size_t content;
    std::size_t size;
    /// Bytes of the type in its head; the size stands behind.
    std::size_t typeSize;
};

namespace Detail {

inline void addMessages(const std::string& file, std::size_t place, std::size_t end, bool isOld,
                        bool hasOrder, std::vector<Hdf5Message>& messages) {
    const std::size_t headSize = isOld ? 8 : hasOrder ? 6 : 4;
    const std::size_t typeSize = isOld ? 2 : 1;
    while (place + headSize <= end && end <= file.size()) {
        const std::uint64_t type = numberAt(file, place, typeSize);
        const auto size = static_cast<std::size_t>(numberAt(file, place + typeSize, 2));
        messages.push_back({place, place + headSize, size, typeSize});
        if (type == 0x10) {
            const auto next = static_cast<std::size_t>(numberAt(file, place + headSize, 8));
            const auto length = static_cast<std::size_t>(numberAt(file, place + headSize + 8, 8));
            addMessages(file, next + (isOld ? 0 : 4), next + length - (isOld ? 0 : 4), isOld, hasOrder,
                        messages);
        }
        place += headSize + size;
    }
}

} // namespace Detail

/// All messages of all object headers of a sound file, of which these are the addresses.
inline std::vector<Hdf5Message> messagesOf(const std::string& file,
                                           const std::vector<std::uint64_t>& headers) {
    std::vector<Hdf5Message> messages;
    for (const std::uint64_t header : headers) {
        const auto start = static_cast<std::size_t>(header);
        if (Detail::byteAt(file, start) == 1) {
            Detail::addMessages(file, start + 16, start + 16 + Detail::numberAt(file, start + 8, 4), true,
                                false, messages);
            continue;
        }
        const std::uint32_t flags = Detail::byteAt(file, start + 5);
        const std::size_t prefix = 6 + ((flags & 0x20) != 0 ? 16u : 0u) + ((flags & 0x10) != 0 ? 4u : 0u);
        const std::size_t sizeBytes = std::size_t{1} << (flags & 3);
        const std::size_t first = start + prefix + sizeBytes;
        Detail::addMessages(file, first, first + Detail::numberAt(file, start + prefix, sizeBytes), false,
                            (flags & 4) != 0, messages);
    }
    return messages;
}

/// Cuts a message off at a length; what is left of it becomes a message that says nothing, where there is room.
inline void cutMessage(std::string& file, const Hdf5Message& message, std::size_t length) {
    const std::size_t headSize = message.content - message.head;
    const auto setSize = [&](std::size_t head, std::size_t size) {
        file[head + message.typeSize] = static_cast<char>(size & 0xff);
        file[head + message.typeSize + 1] = static_cast<char>(size >> 8 & 0xff);
    };
    setSize(message.head, length);
    const std::size_t left = message.size - length;
    if (left < headSize)
        return;
    const std::size_t rest = message.content + length;
    file.replace(rest, left, left, '\0');
    setSize(rest, left - headSize);
}

} // namespace Support
