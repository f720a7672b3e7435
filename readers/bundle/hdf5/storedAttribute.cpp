// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/hdf5/storedAttribute.hpp"

#include "anchor/Error.hpp"
#include "readers/bundle/hdf5/littleEndian.hpp"

#include <algorithm>
#include <array>
#include <cstddef>

namespace Tidewatch::Hdf5 {

namespace {

using Bytes = std::span<const unsigned char>;

// The headers of our objects have some hundred bytes; these limits are for hostile ones.
constexpr std::uint64_t maxBlockBytes = std::uint64_t{1} << 24;
constexpr std::size_t maxBlocks = 1024;

[[noreturn]] void fail(const char* what) {
    throw Anchor::FormatError(what);
}

/// Takes bytes from the front of a block; throws if there are too few.
Bytes take(Bytes& block, std::uint64_t size) {
    if (size > block.size())
        fail("is cut off");
    const Bytes front = block.first(size);
    block = block.subspan(size);
    return front;
}

std::uint64_t takeNumber(Bytes& block, std::size_t size) {
    return littleEndian(take(block, size), 0, size);
}

/// Throws unless a datatype message is long enough for its class (of those that attributes may have).
void requireWholeType(Bytes type) {
    constexpr std::array<std::size_t, 11> minSizes{12, 20, 10, 8, 12, 8, 8, 8, 8, 8 + 8, 8};
    if (type.empty() || type.size() < minSizes[std::min<std::size_t>(type[0] & 15U, minSizes.size() - 1)])
        fail("is cut off");
}

/// The number of elements that a dataspace message states; throws if the message is truncated.
std::uint64_t elementCount(Bytes space) {
    if (space.size() < 4)
        fail("is cut off");
    const std::size_t headSize = space[0] == 1 ? 8 : 4;
    const std::size_t extents = std::size_t{8} * space[1] * ((space[2] & 1U) != 0 ? 2 : 1);
    if (space.size() < headSize + extents)
        fail("is cut off");
    constexpr unsigned none = 2;
    if (space[0] != 1 && space[3] == none)
        return 0;
    std::uint64_t count = 1;
    for (std::size_t axis = 0; axis < space[1]; ++axis) {
        if (__builtin_mul_overflow(count, littleEndian(space, headSize + 8 * axis, 8), &count))
            fail("has extents whose product exceeds 64 bits");
    }
    return count;
}

/// Searches the messages of one object header for an attribute.
class HeaderSearch {
public:
    HeaderSearch(const Fetch& fetch, std::string_view attribute) : fetch_(fetch), attribute_(attribute) {}

    std::optional<StoredAttribute> find(std::uint64_t header) {
        readFirstBlock(header);
        for (std::size_t i = 0; i < continuations_.size() && !found_; ++i) {
            if (i == maxBlocks)
                fail("is in a header of too many pieces");
            const std::vector<unsigned char> block = read(continuations_[i].address, continuations_[i].size);
            // Blocks of version 2 have a signature before and a checksum after their messages.
            constexpr std::size_t frameSize = 4;
            Bytes messages = block;
            if (!isOld_) {
                take(messages, frameSize);
                messages = take(messages, messages.size() - std::min(messages.size(), frameSize));
            }
            readMessages(messages);
        }
        return std::move(found_);
    }

private:
    struct Continuation {
        std::uint64_t address;
        std::uint64_t size;
    };

    std::vector<unsigned char> read(std::uint64_t address, std::uint64_t size) const {
        if (size > maxBlockBytes)
            fail("has a header of an impossible size");
        std::vector<unsigned char> block(size);
        if (!fetch_(address, block))
            fail("has a header that extends beyond the end of the file");
        return block;
    }

    void readFirstBlock(std::uint64_t header) {
        constexpr std::size_t oldPrefixSize = 16;
        const std::vector<unsigned char> prefix = read(header, oldPrefixSize);
        // Version 1: version, number of messages, number of references, size of the messages, padding.
        if (prefix[0] == 1) {
            isOld_ = true;
            readMessages(read(header + oldPrefixSize, littleEndian(prefix, 8, 4)));
            return;
        }
        // Version 2: signature, version, flags, then what the flags say there is: four timestamps, two limits
        // for attributes; finally the size of the messages, in 1, 2, 4 or 8 bytes.
        constexpr std::array<unsigned char, 5> start{'O', 'H', 'D', 'R', 2};
        if (!std::equal(start.begin(), start.end(), prefix.begin()))
            fail("has a header of an unknown form");
        isOld_ = false;
        const unsigned flags = prefix[5];
        hasOrder_ = (flags & 4U) != 0;
        const std::size_t sizeBytes = std::size_t{1} << (flags & 3U);
        const std::uint64_t place =
            header + 6 + ((flags & 0x20U) != 0 ? 16U : 0U) + ((flags & 0x10U) != 0 ? 4U : 0U);
        const std::uint64_t size = littleEndian(read(place, sizeBytes), 0, sizeBytes);
        readMessages(read(place + sizeBytes, size));
    }

    void readMessages(Bytes block) {
        constexpr std::uint64_t attributeType = 0x0c;
        constexpr std::uint64_t continuationType = 0x10;
        // Version 1: type (2 bytes), size (2), flags, padding (3). Version 2: type, size (2), flags, order (2).
        const std::size_t headSize = isOld_ ? 8 : hasOrder_ ? 6 : 4;
        while (block.size() >= headSize && !found_) {
            Bytes head = take(block, headSize);
            const std::uint64_t type = takeNumber(head, isOld_ ? 2 : 1);
            const std::uint64_t size = takeNumber(head, 2);
            const bool isShared = (takeNumber(head, 1) & 2) != 0;
            if (size > block.size())
                fail("has a header that is cut off");
            Bytes content = take(block, size);
            if (type == continuationType) {
                const std::uint64_t address = takeNumber(content, 8);
                continuations_.push_back({address, takeNumber(content, 8)});
            } else if (type == attributeType && !isShared) {
                readAttribute(content);
            }
        }
    }

    void readAttribute(Bytes message) {
        const std::uint64_t version = takeNumber(message, 1);
        const std::uint64_t flags = takeNumber(message, 1);
        const std::uint64_t nameSize = takeNumber(message, 2);
        const std::uint64_t typeSize = takeNumber(message, 2);
        const std::uint64_t spaceSize = takeNumber(message, 2);
        if (version >= 3)
            take(message, 1); // the encoding of the name
        // In version 1 each part is padded to a multiple of 8 bytes.
        const auto takePart = [&](std::uint64_t size) {
            return take(message, version == 1 ? (size + 7) / 8 * 8 : size).first(size);
        };
        Bytes name = takePart(nameSize);
        name = name.first(static_cast<std::size_t>(std::find(name.begin(), name.end(), 0) - name.begin()));
        if (!std::equal(name.begin(), name.end(), attribute_.begin(), attribute_.end(),
                        [](unsigned char a, char b) { return a == static_cast<unsigned char>(b); }))
            return;
        if (version != 1 && flags != 0)
            fail("has a type that is stored elsewhere in the file");
        const Bytes type = takePart(typeSize);
        requireWholeType(type);
        const std::uint64_t count = elementCount(takePart(spaceSize));
        const std::uint64_t elementSize = littleEndian(type, 4, 4);
        if (elementSize != 0 && message.size() / elementSize < count)
            fail("is cut off");
        found_.emplace();
        found_->type.assign(type.begin(), type.end());
        found_->data.assign(message.begin(), message.end());
    }

    const Fetch& fetch_;
    std::string_view attribute_;
    bool isOld_ = true;
    bool hasOrder_ = false;
    std::vector<Continuation> continuations_;
    std::optional<StoredAttribute> found_;
};

/// The address of an object of a global heap collection, which must have at least `size` bytes.
std::uint64_t heapObject(const Fetch& fetch, std::uint64_t collection, std::uint64_t number,
                         std::uint64_t size) {
    std::array<unsigned char, 16> head{};
    constexpr std::array<unsigned char, 4> signature{'G', 'C', 'O', 'L'};
    if (!fetch(collection, head) || !std::equal(signature.begin(), signature.end(), head.begin()))
        fail("refers to a heap that does not exist");
    const std::uint64_t end = littleEndian(head, 8, 8);
    for (std::uint64_t place = head.size(); end >= head.size() && place <= end - head.size();) {
        if (!fetch(collection + place, head))
            break;
        const std::uint64_t objectNumber = littleEndian(head, 0, 2);
        const std::uint64_t objectSize = littleEndian(head, 8, 8);
        place += head.size();
        if (objectNumber == 0 || objectSize > end - place)
            break;
        if (objectNumber == number) {
            if (objectSize < size)
                break;
            return collection + place;
        }
        place += (objectSize + 7) / 8 * 8;
    }
    fail("refers to a text that is not in the file's heap");
}

} // namespace

std::optional<StoredAttribute> storedAttribute(const Fetch& fetch, std::uint64_t header,
                                               std::string_view attribute) {
    return HeaderSearch(fetch, attribute).find(header);
}

std::string variableText(const Fetch& fetch, const StoredAttribute& attribute, std::size_t most) {
    constexpr unsigned variableLength = 9;
    constexpr unsigned isText = 1;
    if ((attribute.type[0] & 15U) != variableLength || (attribute.type[1] & 15U) != isText)
        fail("is not a string of variable length");
    Bytes rest = attribute.data;
    const std::uint64_t size = takeNumber(rest, 4);
    const std::uint64_t collection = takeNumber(rest, 8);
    const std::uint64_t number = takeNumber(rest, 4);
    if (size == 0)
        return {};
    if (size > most)
        fail("is too long");
    std::vector<unsigned char> text(size);
    if (!fetch(heapObject(fetch, collection, number, size), text))
        fail("refers to a text that is not in the file's heap");
    return std::string(text.begin(), std::find(text.begin(), text.end(), 0));
}

} // namespace Tidewatch::Hdf5
