// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/hdf5/HeaderMessages.hpp"

#include "readers/bundle/hdf5/littleEndian.hpp"

#include <algorithm>
#include <array>

namespace Tidewatch::Hdf5 {

std::optional<HeaderStart> HeaderStart::read(std::span<const unsigned char> prefix) {
    // Version 1: version, number of messages, number of references, size of the messages, padding.
    constexpr std::size_t oldPrefixSize = 16;
    if (prefix.size() < oldPrefixSize)
        return std::nullopt;
    if (prefix[0] == 1)
        return HeaderStart{{true, false}, oldPrefixSize, littleEndian(prefix, 8, 4)};

    // Version 2: signature, version, flags, then what the flags say there is: four times of day, two limits
    // for attributes; at last the size of the messages, in 1, 2, 4 or 8 bytes.
    constexpr std::array<unsigned char, 5> start{'O', 'H', 'D', 'R', 2};
    if (!std::equal(start.begin(), start.end(), prefix.begin()))
        return std::nullopt;
    const unsigned flags = prefix[5];
    const std::size_t sizeBytes = std::size_t{1} << (flags & 3);
    const std::size_t offset = 6 + ((flags & 0x20) != 0 ? 16u : 0u) + ((flags & 0x10) != 0 ? 4u : 0u);
    if (prefix.size() < offset + sizeBytes)
        return std::nullopt;
    return HeaderStart{
        {false, (flags & 4) != 0}, offset + sizeBytes, littleEndian(prefix, offset, sizeBytes)};
}

bool forEachMessage(const HeaderForm& form, std::span<const unsigned char> block,
                    const std::function<bool(const HeaderMessage& message)>& visit) {
    // Version 1: type (2 bytes), size (2), flags, padding (3). Version 2: type, size (2), flags, order (2).
    const std::size_t typeSize = form.isOld ? 2 : 1;
    const std::size_t headSize = form.isOld ? 8 : form.hasOrder ? 6 : 4;
    while (block.size() >= headSize) {
        HeaderMessage message;
        message.type = littleEndian(block, 0, typeSize);
        const std::uint64_t size = littleEndian(block, typeSize, 2);
        message.isShared = (block[typeSize + 2] & 2) != 0;
        block = block.subspan(headSize);
        if (size > block.size())
            return false;
        message.content = block.first(size);
        if (!visit(message))
            return true;
        block = block.subspan(size);
    }
    return true;
}

} // namespace Tidewatch::Hdf5
