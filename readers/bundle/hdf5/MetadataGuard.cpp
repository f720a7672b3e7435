// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/hdf5/MetadataGuard.hpp"

#include "readers/bundle/hdf5/littleEndian.hpp"
#include "readers/bundle/hdf5/messageChecks.hpp"
#include "readers/bundle/hdf5/metadataChecksum.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <limits>
#include <set>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace Tidewatch::Hdf5 {

namespace {

bool hasSignature(std::span<const unsigned char> block, std::string_view signature) {
    return block.size() >= signature.size() && std::equal(signature.begin(), signature.end(), block.begin());
}

constexpr std::size_t checksumSize = 4;
constexpr std::uint64_t mostHeaderBytes = std::uint64_t{1} << 24;

/// Whether a block ends with the checksum of what is before.
bool hasChecksum(std::span<const unsigned char> block) {
    const std::size_t end = block.size() - checksumSize;
    return littleEndian(block, end, checksumSize) == metadataChecksum(block.first(end));
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
    if (hasSignature(block, "FAHD"))
        return fixedArrayFault(block, fetch);
    if (hasSignature(block, "EAHD"))
        return growingArrayFault(block);
    return type == H5FD_MEM_OHDR ? headerFault(address, block, fetch) : std::nullopt;
}

std::optional<std::string>
MetadataGuard::headerFault(std::uint64_t address, std::span<const unsigned char> block, const Fetch& fetch) {
    const auto start = HeaderStart::read(block);
    const auto known = continuations_.find(address);
    // A continuation has been looked at with its header. In the old form it may look like a header; whether
    // it is read as one shows in the size, with which the library first asks for a header.
    constexpr std::size_t firstSize = 512;
    std::array<unsigned char, 1> next{};
    if (!start || (known != continuations_.end() && known->second == block.size() &&
                   block.size() != firstSize && fetch(address + block.size(), next)))
        return std::nullopt;
    // The library first reads a header without knowing how long it is, and then once more as a whole where
    // that was not enough. If it finds fault with the whole only then, it loses memory for good, and
    // complains about that on the console when the process ends; so all is looked at straight away.
    std::vector<Place> continuations;
    std::uint64_t bytesLeft = mostHeaderBytes;
    const auto checkBlock = [&](const Place& place, std::size_t before) -> std::optional<std::string> {
        const std::size_t behind = start->form.isOld ? 0 : checksumSize;
        if (place.size < before + behind || place.size > bytesLeft)
            return "has an object header of an impossible size";
        bytesLeft -= place.size;
        std::vector<unsigned char> bytes(place.size);
        if (!fetch(place.address, bytes))
            return "has an object header that leads out of the file";
        if (!start->form.isOld && !hasChecksum(bytes))
            return "has an object header that does not match its checksum";
        return messagesFault(start->form, std::span(bytes).subspan(before, bytes.size() - before - behind),
                             continuations);
    };
    if (start->size > mostHeaderBytes)
        return "has an object header of an impossible size";
    const std::uint64_t size = start->offset + start->size + (start->form.isOld ? 0 : checksumSize);
    auto fault = checkBlock({address, size}, start->offset);
    constexpr std::size_t signatureSize = 4;
    for (std::size_t i = 0; i < continuations.size() && !fault; ++i) {
        const Place place = continuations[i];
        fault = place.size == 0 ? "has an object header of an impossible size"
                                : checkBlock(place, start->form.isOld ? 0 : signatureSize);
        continuations_.insert_or_assign(place.address, place.size);
    }
    return fault;
}

std::optional<std::string> MetadataGuard::messagesFault(const HeaderForm& form,
                                                        std::span<const unsigned char> block,
                                                        std::vector<Place>& continuations) {
    const char* fault = nullptr;
    const bool isWhole = forEachMessage(form, block, [&](const HeaderMessage& message) {
        // A layout never stands elsewhere, whatever its flags say.
        if (message.isShared && !message.is(HeaderMessage::Type::DataLayout))
            return true;
        const auto content = message.content;
        if (message.is(HeaderMessage::Type::Link) && !isLink(content))
            fault = "has a link that cannot be decoded";
        else if (message.is(HeaderMessage::Type::Dataspace) && !isDataspace(content))
            fault = "has extents that are cut off or beyond all bounds";
        else if (message.is(HeaderMessage::Type::Datatype) && !isDatatype(content))
            fault = "has a number type that is cut off";
        else if (message.is(HeaderMessage::Type::DataLayout) && !isDataLayout(content))
            fault = "has a data layout from before HDF5 1.6.3, or with chunks of an impossible size";
        else if (message.is(HeaderMessage::Type::Attribute) && !isAttribute(content))
            fault = "has an attribute that is cut off, or whose type stands elsewhere";
        else if (message.is(HeaderMessage::Type::Continuation) && content.size() < 16)
            fault = "has an object header that is cut off";
        else if (message.is(HeaderMessage::Type::Continuation))
            continuations.push_back({littleEndian(content, 0, 8), littleEndian(content, 8, 8)});
        return fault == nullptr;
    });
    if (fault != nullptr)
        return fault;
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
    const auto firstBits = static_cast<std::uint64_t>(std::countr_zero(firstBlock)) +
                           static_cast<std::uint64_t>(std::countr_zero(width));
    if (addressBits < firstBits || addressBits < static_cast<std::uint64_t>(std::countr_zero(lastBlock)) ||
        rows > addressBits - firstBits + 1)
        return "has a fractal heap of an impossible shape";
    return std::nullopt;
}

std::optional<std::string> MetadataGuard::fixedArrayFault(std::span<const unsigned char> header,
                                                          const Fetch& fetch) {
    // Signature, version, what the entries are, bytes of an entry, bits of the numbers of a page's entries;
    // the number of entries, and where they are.
    constexpr std::size_t headerSize = 28;
    constexpr unsigned mostPageBits = 32;
    constexpr std::uint64_t nowhere = std::numeric_limits<std::uint64_t>::max();
    if (header.size() < headerSize)
        return "has an index of chunks that is cut off";
    const std::uint64_t entrySize = header[6];
    const unsigned pageBits = header[7];
    const std::uint64_t count = littleEndian(header, 8, 8);
    const std::uint64_t entries = littleEndian(header, 16, 8);
    if (entrySize == 0 || pageBits == 0 || pageBits > mostPageBits || count == 0)
        return "has an index of chunks of an impossible shape";
    std::uint64_t end = 0;
    std::array<unsigned char, 1> last{};
    if (entries != nowhere && (__builtin_mul_overflow(count, entrySize, &end) ||
                               __builtin_add_overflow(end, entries, &end) || !fetch(end - 1, last)))
        return "has an index of chunks that leads out of the file";
    return std::nullopt;
}

std::optional<std::string> MetadataGuard::growingArrayFault(std::span<const unsigned char> header) {
    // Signature, version, what the entries are, bytes of an entry, bits of the numbers of all entries; how
    // many entries are in the index itself and at least in a block of data, and how many blocks at least in a
    // block of blocks; bits of the numbers of a page's entries.
    constexpr std::size_t headerSize = 72;
    if (header.size() < headerSize)
        return "has an index of chunks that is cut off";
    const unsigned entrySize = header[6];
    const unsigned bits = header[7];
    const unsigned leastEntries = header[9];
    const unsigned leastBlocks = header[10];
    const unsigned pageBits = header[11];
    if (entrySize == 0 || bits == 0 || bits > 64 || !std::has_single_bit(leastEntries) ||
        !std::has_single_bit(leastBlocks) || leastBlocks < 2 || pageBits == 0 || pageBits > bits ||
        static_cast<unsigned>(std::countr_zero(leastEntries)) >= bits)
        return "has an index of chunks of an impossible shape";
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
