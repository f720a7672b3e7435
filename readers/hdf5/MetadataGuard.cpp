// SPDX-License-Identifier: Apache-2.0
#include "readers/hdf5/MetadataGuard.hpp"

#include "readers/hdf5/littleEndian.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <limits>
#include <set>
#include <string_view>
#include <unordered_set>

namespace Tidewatch::Hdf5 {

namespace {

bool hasSignature(std::span<const unsigned char> block, std::string_view signature) {
    return block.size() >= signature.size() && std::equal(signature.begin(), signature.end(), block.begin());
}

/// Whether a link message is one that the library can decode.
bool isLink(std::span<const unsigned char> message) {
    // Version and flags, then what the flags say there is: the type of the link, its creation order and the
    // encoding of its name; the length of the name, in 1, 2, 4 or 8 bytes, the name, and where it leads.
    constexpr unsigned knownFlags = 0x1f;
    constexpr unsigned hard = 0;
    constexpr unsigned soft = 1;
    constexpr unsigned leastUserDefined = 64;
    if (message.size() < 2 || message[0] != 1 || (message[1] & ~knownFlags) != 0)
        return false;
    const unsigned flags = message[1];
    const std::size_t lengthSize = std::size_t{1} << (flags & 3);
    const bool hasType = (flags & 8) != 0;
    const bool hasEncoding = (flags & 0x10) != 0;
    std::size_t place = 2 + (hasType ? 1u : 0u) + ((flags & 4) != 0 ? 8u : 0u) + (hasEncoding ? 1u : 0u);
    if (message.size() < place + lengthSize || (hasEncoding && message[place - 1] > 1))
        return false;
    const unsigned type = hasType ? message[2] : hard;
    const std::uint64_t length = littleEndian(message, place, lengthSize);
    place += lengthSize;
    if (length == 0 || length > message.size() - place)
        return false;
    place += length;
    if (type == hard)
        return message.size() - place >= 8;
    if ((type != soft && type < leastUserDefined) || message.size() - place < 2)
        return false;
    const std::uint64_t targetSize = littleEndian(message, place, 2);
    return targetSize <= message.size() - place - 2 && (type != soft || targetSize != 0);
}

} // namespace

std::optional<std::string> MetadataGuard::fault(H5FD_mem_t type, std::uint64_t address,
                                                std::span<const unsigned char> block, const Fetch& fetch) {
    if (type == H5FD_MEM_DRAW)
        return std::nullopt;
    if (type == H5FD_MEM_GHEAP)
        return "refers to the file's global heap, as virtual datasets do";
    if (hasSignature(block, "HEAP"))
        return localHeapFault(block, fetch);
    if (hasSignature(block, "TREE"))
        return treeFault(address, block, fetch);
    if (hasSignature(block, "BTHD"))
        return indexFault(block);
    if (hasSignature(block, "FRHP"))
        return fractalHeapFault(block);
    return type == H5FD_MEM_OHDR ? headerFault(address, block) : std::nullopt;
}

std::optional<std::string> MetadataGuard::headerFault(std::uint64_t address,
                                                      std::span<const unsigned char> block) {
    // The library first reads a header without knowing how long it is, and then once more as a whole where
    // that was not enough. What follows the messages of version 2 is a checksum.
    if (const auto start = HeaderStart::read(block)) {
        const std::uint64_t room = block.size() - start->offset;
        return start->size <= room ? messagesFault(start->form, block.subspan(start->offset, start->size))
                                   : std::nullopt;
    }
    const auto known = continuations_.find(address);
    if (known == continuations_.end())
        return std::nullopt;
    if (known->second.isOld)
        return messagesFault(known->second, block);
    constexpr std::size_t frameSize = 4;
    if (!hasSignature(block, "OCHK") || block.size() < 2 * frameSize)
        return "has an object header that is cut off";
    return messagesFault(known->second, block.subspan(frameSize, block.size() - 2 * frameSize));
}

std::optional<std::string> MetadataGuard::messagesFault(const HeaderForm& form,
                                                        std::span<const unsigned char> block) {
    bool isGood = true;
    const bool isWhole =
        forEachMessage(form, block, [&](std::uint64_t type, std::span<const unsigned char> content) {
            if (type == static_cast<std::uint64_t>(HeaderMessage::Link))
                isGood = isLink(content);
            else if (type == static_cast<std::uint64_t>(HeaderMessage::Continuation) && content.size() >= 8)
                continuations_.insert_or_assign(littleEndian(content, 0, 8), form);
            return isGood;
        });
    if (!isGood)
        return "has a link that cannot be decoded";
    return isWhole ? std::nullopt : std::optional<std::string>("has an object header that is cut off");
}

std::optional<std::string> MetadataGuard::localHeapFault(std::span<const unsigned char> header,
                                                         const Fetch& fetch) {
    // Signature and version, then the size of the data segment, the head of its free list, and its address.
    constexpr std::size_t headerSize = 32;
    constexpr std::uint64_t endOfList = 1;
    constexpr std::uint64_t entrySize = 16;
    if (header.size() < headerSize)
        return "has a local heap that is cut off";
    const std::uint64_t size = littleEndian(header, 8, 8);
    std::uint64_t entry = littleEndian(header, 16, 8);
    const std::uint64_t data = littleEndian(header, 24, 8);
    std::array<unsigned char, 1> last{};
    if (size == 0 || data > std::numeric_limits<std::uint64_t>::max() - size || !fetch(data + size - 1, last))
        return "has a local heap that lies beyond the end of the file";
    std::unordered_set<std::uint64_t> seen;
    while (entry != endOfList) {
        std::array<unsigned char, entrySize> bytes{};
        if (size < entrySize || entry > size - entrySize || !seen.insert(entry).second ||
            !fetch(data + entry, bytes))
            return "has a local heap whose free space is not inside it or has no end";
        entry = littleEndian(bytes, 0, 8);
    }
    return std::nullopt;
}

std::optional<std::string> MetadataGuard::indexFault(std::span<const unsigned char> header) {
    // Signature, version, type of the records, bytes of a node and of a record, depth.
    constexpr std::size_t headerSize = 38;
    constexpr std::uint64_t mostNodeSize = std::uint64_t{1} << 20;
    constexpr std::uint64_t nodeFrame = 10;
    constexpr std::uint64_t mostPointerSize = 24;
    constexpr std::uint64_t mostDepth = 8;
    if (header.size() < headerSize)
        return "has a B-tree that is cut off";
    const unsigned type = header[5];
    const std::uint64_t nodeSize = littleEndian(header, 6, 4);
    const std::uint64_t recordSize = littleEndian(header, 10, 2);
    const std::uint64_t depth = littleEndian(header, 12, 2);
    // The library decodes records of the sizes that go with their types, whatever the header says.
    constexpr std::array<std::uint64_t, 10> recordSizes{0, 24, 36, 16, 28, 11, 15, 0, 17, 13};
    if (type < recordSizes.size() ? recordSizes[type] != recordSize : recordSize < 16)
        return "has a B-tree with records of an impossible size";
    if (nodeSize > mostNodeSize || nodeSize < nodeFrame + 3 * (recordSize + mostPointerSize) ||
        depth > mostDepth)
        return "has a B-tree of an impossible shape";
    return std::nullopt;
}

std::optional<std::string> MetadataGuard::fractalHeapFault(std::span<const unsigned char> header) {
    constexpr std::size_t headerSize = 146;
    constexpr std::uint64_t mostBlock = std::uint64_t{1} << 24;
    if (header.size() < headerSize)
        return "has a fractal heap that is cut off";
    const std::uint64_t filterSize = littleEndian(header, 7, 2);
    const std::uint64_t mostObject = littleEndian(header, 10, 4);
    const std::uint64_t width = littleEndian(header, 110, 2);
    const std::uint64_t firstBlock = littleEndian(header, 112, 8);
    const std::uint64_t lastBlock = littleEndian(header, 120, 8);
    const std::uint64_t addressBits = littleEndian(header, 128, 2);
    const std::uint64_t rows = littleEndian(header, 140, 2);
    if (filterSize != 0)
        return "has a fractal heap with filters, which no library makes for links and attributes";
    if (!std::has_single_bit(width) || width > 64 || !std::has_single_bit(firstBlock) || firstBlock < 64 ||
        !std::has_single_bit(lastBlock) || lastBlock < firstBlock || lastBlock > mostBlock ||
        mostObject > lastBlock || addressBits > 64)
        return "has a fractal heap with blocks of impossible sizes";
    // Each row of blocks covers twice as many addresses as the one before.
    const auto firstBits = static_cast<std::uint64_t>(std::countr_zero(firstBlock) + std::countr_zero(width));
    if (addressBits < firstBits || addressBits < static_cast<std::uint64_t>(std::countr_zero(lastBlock)) ||
        rows > addressBits - firstBits + 1)
        return "has a fractal heap of an impossible shape";
    return std::nullopt;
}

std::optional<std::string> MetadataGuard::treeFault(std::uint64_t address,
                                                    std::span<const unsigned char> node, const Fetch& fetch) {
    // Signature, type, level, number of entries, two siblings; then keys and children in turn, and a last
    // key.
    constexpr std::size_t headerSize = 24;
    constexpr std::size_t childSize = 8;
    if (node.size() < headerSize)
        return "has a B-tree that is cut off";
    const bool isOfGroup = node[4] == 0;
    const unsigned level = node[5];
    const std::uint64_t count = littleEndian(node, 6, 2);
    // The children of a leaf are symbol nodes in a group's tree, and data in that of chunks.
    if (!isOfGroup && level == 0)
        return std::nullopt;
    // The keys of chunks are as long as the dataset has axes; the library reads nodes at their full size.
    const std::size_t keySize =
        isOfGroup ? 8
                  : (node.size() - std::min(node.size(), headerSize + entriesOfChunkNode_ * childSize)) /
                        (entriesOfChunkNode_ + 1);
    if (keySize == 0 || (node.size() - headerSize) / (keySize + childSize) < count)
        return "has a B-tree that is cut off";

    std::set<std::uint64_t> children;
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::uint64_t child = littleEndian(node, headerSize + i * (keySize + childSize) + keySize, 8);
        std::array<unsigned char, 6> start{};
        if (!fetch(child, start))
            return "has a B-tree that leads out of the file";
        const bool fits = level == 0
                              ? hasSignature(start, "SNOD")
                              : hasSignature(start, "TREE") && start[4] == node[4] && start[5] + 1u == level;
        const auto [known, isNew] = parents_.try_emplace(child, address);
        if (!fits || !children.insert(child).second || known->second != address)
            return "has a B-tree that is no tree";
    }
    return std::nullopt;
}

} // namespace Tidewatch::Hdf5
