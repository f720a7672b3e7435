// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/hdf5/messageChecks.hpp"

#include "readers/bundle/hdf5/littleEndian.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace Tidewatch::Hdf5 {

namespace {

using Bytes = std::span<const unsigned char>;

/// Takes bytes from the front of a block; nothing when there are not so many.
std::optional<Bytes> take(Bytes& block, std::uint64_t size) {
    if (size > block.size())
        return std::nullopt;
    const Bytes front = block.first(size);
    block = block.subspan(size);
    return front;
}

std::uint64_t paddedToEight(std::uint64_t size) {
    return (size + 7) / 8 * 8;
}

/// Takes a name with the zero at its end.
bool takeName(Bytes& block, bool isPadded) {
    const auto zero = std::find(block.begin(), block.end(), 0);
    if (zero == block.end())
        return false;
    const auto size = static_cast<std::uint64_t>(zero - block.begin()) + 1;
    return take(block, isPadded ? paddedToEight(size) : size).has_value();
}

bool takeDatatype(Bytes& block, unsigned depth);

bool takeCompound(Bytes& block, unsigned version, std::uint64_t count, std::uint64_t size, unsigned depth) {
    // Offsets have 4 bytes, or as few as the size of the whole needs; version 1 has extents behind them.
    std::uint64_t offsetSize = 4;
    if (version >= 3) {
        offsetSize = 1;
        while (offsetSize < 4 && size >> (8 * offsetSize) != 0)
            ++offsetSize;
    }
    constexpr std::uint64_t extentsSize = 28;
    for (std::uint64_t i = 0; i < count; ++i) {
        if (!takeName(block, version < 3) || !take(block, offsetSize) ||
            (version == 1 && !take(block, extentsSize)) || !takeDatatype(block, depth))
            return false;
    }
    return true;
}

bool takeEnumeration(Bytes& block, unsigned version, std::uint64_t count, unsigned depth) {
    if (block.size() < 8)
        return false;
    const std::uint64_t valueSize = littleEndian(block, 4, 4);
    if (!takeDatatype(block, depth))
        return false;
    for (std::uint64_t i = 0; i < count; ++i) {
        if (!takeName(block, version < 3))
            return false;
    }
    return take(block, count * valueSize).has_value();
}

bool takeArray(Bytes& block, unsigned version, unsigned depth) {
    // The number of axes, padded in the older versions; the extents, and there a permutation of the axes.
    const auto head = take(block, version < 3 ? 4 : 1);
    if (!head)
        return false;
    const std::uint64_t axes = head->front();
    return take(block, axes * (version < 3 ? 8 : 4)).has_value() && takeDatatype(block, depth);
}

/// Takes a datatype from the front of a block; false when it is longer than the block.
bool takeDatatype(Bytes& block, unsigned depth) {
    enum Class : unsigned {
        Integer,
        Real,
        Time,
        Text,
        Bits,
        Opaque,
        Compound,
        Reference,
        Enumeration,
        Variable,
        Array
    };
    // No type of any use is nested as deeply.
    constexpr unsigned mostDepth = 16;
    constexpr std::uint64_t headSize = 8;
    const auto head = take(block, headSize);
    if (!head || depth >= mostDepth)
        return false;
    const unsigned version = (*head)[0] >> 4;
    const std::uint64_t count = littleEndian(*head, 1, 2);
    const std::uint64_t size = littleEndian(*head, 4, 4);
    switch ((*head)[0] & 15) {
    case Integer:
    case Bits:
        return take(block, 4).has_value();
    case Real:
        return take(block, 12).has_value();
    case Time:
        return take(block, 2).has_value();
    case Text:
    case Reference:
        return true;
    case Opaque:
        return take(block, (*head)[1]).has_value();
    case Compound:
        return takeCompound(block, version, count, size, depth + 1);
    case Enumeration:
        return takeEnumeration(block, version, count, depth + 1);
    case Variable:
        return takeDatatype(block, depth + 1);
    case Array:
        return takeArray(block, version, depth + 1);
    default:
        return false;
    }
}

/// The number of elements that extents stand for; nothing when they are cut off or beyond all bounds.
std::optional<std::uint64_t> elementCount(Bytes space) {
    // Version, number of axes, flags, then padding or the kind of extents; the extents, each of 8 bytes, and
    // what they may grow to.
    constexpr std::size_t oldHeadSize = 8;
    constexpr std::size_t headSize = 4;
    constexpr std::uint64_t mostAxes = 32;
    constexpr unsigned simple = 1;
    constexpr unsigned none = 2;
    if (space.size() < headSize || space[0] < 1 || space[0] > 2 || space[1] > mostAxes)
        return std::nullopt;
    const bool isOld = space[0] == 1;
    const std::uint64_t axes = space[1];
    const std::uint64_t lists = (space[2] & 1) != 0 ? 2 : 1;
    if (!isOld && (space[3] > none || (space[3] == simple) != (axes != 0)))
        return std::nullopt;
    if (!isOld && space[3] == none)
        return 0;
    if (!take(space, isOld ? oldHeadSize : headSize) || space.size() / 8 < axes * lists)
        return std::nullopt;
    std::uint64_t count = 1;
    for (std::uint64_t axis = 0; axis < axes; ++axis) {
        if (__builtin_mul_overflow(count, littleEndian(space, 8 * axis, 8), &count))
            return std::nullopt;
    }
    return count;
}

} // namespace

bool isLink(std::span<const unsigned char> content) {
    // Version and flags, then what the flags say there is: the type of the link, its creation order and the
    // encoding of its name; the length of the name, in 1, 2, 4 or 8 bytes, the name, and where it leads.
    constexpr unsigned knownFlags = 0x1f;
    constexpr unsigned hard = 0;
    constexpr unsigned soft = 1;
    constexpr unsigned leastUserDefined = 64;
    if (content.size() < 2 || content[0] != 1 || (content[1] & ~knownFlags) != 0)
        return false;
    const unsigned flags = content[1];
    const std::size_t lengthSize = std::size_t{1} << (flags & 3);
    const bool hasType = (flags & 8) != 0;
    const bool hasEncoding = (flags & 0x10) != 0;
    std::size_t place = 2 + (hasType ? 1u : 0u) + ((flags & 4) != 0 ? 8u : 0u) + (hasEncoding ? 1u : 0u);
    if (content.size() < place + lengthSize || (hasEncoding && content[place - 1] > 1))
        return false;
    const unsigned type = hasType ? content[2] : hard;
    const std::uint64_t length = littleEndian(content, place, lengthSize);
    place += lengthSize;
    if (length == 0 || length > content.size() - place)
        return false;
    place += length;
    if (type == hard)
        return content.size() - place >= 8;
    if ((type != soft && type < leastUserDefined) || content.size() - place < 2)
        return false;
    const std::uint64_t targetSize = littleEndian(content, place, 2);
    return targetSize <= content.size() - place - 2 && (type != soft || targetSize != 0);
}

bool isDataspace(Bytes content) {
    return elementCount(content).has_value();
}

bool isDatatype(Bytes content) {
    return takeDatatype(content, 0);
}

bool isDataLayout(Bytes content) {
    // Version and class. Of chunks, in version 3: the number of axes, an address. In version 4: flags, the
    // number of axes, the bytes of an extent. Then the extents, the last of them the size of an element.
    constexpr unsigned leastVersion = 3;
    constexpr unsigned chunked = 2;
    constexpr std::size_t addressSize = 8;
    if (content.size() < 2 || content[0] < leastVersion)
        return false;
    if (content[1] != chunked)
        return true;
    const bool isNew = content[0] > leastVersion;
    const auto head = take(content, isNew ? 5 : 3 + addressSize);
    if (!head)
        return false;
    const std::uint64_t axes = (*head)[isNew ? 3 : 2];
    const std::uint64_t extentSize = isNew ? (*head)[4] : 4;
    if (axes < 2 || extentSize < 1 || extentSize > 8 || content.size() / extentSize < axes)
        return false;
    for (std::uint64_t axis = 0; axis < axes; ++axis) {
        if (littleEndian(content, axis * extentSize, extentSize) == 0)
            return false;
    }
    return true;
}

bool isAttribute(Bytes content) {
    // Version, flags, the sizes of name, type and extents, in version 3 the encoding of the name; then these
    // three, in version 1 padded to a multiple of 8 bytes each, and the data.
    constexpr std::uint64_t headSize = 8;
    const auto head = take(content, headSize);
    if (!head)
        return false;
    const unsigned version = (*head)[0];
    if (version < 1 || version > 3 || (version != 1 && (*head)[1] != 0) ||
        (version == 3 && !take(content, 1)))
        return false;
    const auto takePart = [&](std::uint64_t size) -> std::optional<Bytes> {
        const auto part = take(content, version == 1 ? paddedToEight(size) : size);
        return part ? std::optional(part->first(size)) : std::nullopt;
    };
    const auto name = takePart(littleEndian(*head, 2, 2));
    const auto type = takePart(littleEndian(*head, 4, 2));
    const auto space = takePart(littleEndian(*head, 6, 2));
    if (!name || !type || !space || name->empty() || name->back() != 0 || !isDatatype(*type))
        return false;
    const auto count = elementCount(*space);
    std::uint64_t bytes = 0;
    return count && !__builtin_mul_overflow(*count, littleEndian(*type, 4, 4), &bytes) &&
           bytes <= content.size();
}

} // namespace Tidewatch::Hdf5
