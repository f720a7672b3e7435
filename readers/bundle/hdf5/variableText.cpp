// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/hdf5/variableText.hpp"

#include "anchor/Error.hpp"
#include "readers/bundle/hdf5/HeaderMessages.hpp"
#include "readers/bundle/hdf5/littleEndian.hpp"

#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <vector>

namespace Tidewatch::Hdf5 {

namespace {

using Bytes = std::span<const unsigned char>;

// The headers of our objects have some hundred bytes; these bounds are for hostile ones.
constexpr std::uint64_t mostBlockBytes = std::uint64_t{1} << 20;
constexpr std::size_t mostBlocks = 64;

[[noreturn]] void fail(const char* what) {
    throw Anchor::FormatError(what);
}

/// Takes bytes from the front of a block; throws when there are not so many.
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

/// Looks through the messages of one object header for an attribute.
class HeaderSearch {
public:
    HeaderSearch(const MetadataGuard::Fetch& fetch, std::string_view attribute)
        : fetch_(fetch),
          attribute_(attribute) {}

    /// The attribute's data: what an element of a variable-length type is in a file.
    std::vector<unsigned char> find(std::uint64_t header) {
        // The prefix is never longer than the header, but a short one may end with the file.
        std::vector<unsigned char> prefix(HeaderStart::mostPrefixBytes);
        while (!fetch_(header, prefix) && !prefix.empty())
            prefix.pop_back();
        const auto start = HeaderStart::read(prefix);
        if (!start)
            fail("has a header of an unknown form");
        readMessages(start->form, read(header + start->offset, start->size));
        for (std::size_t i = 0; i < continuations_.size() && !data_; ++i) {
            if (i == mostBlocks)
                fail("is not found in a header of that many pieces");
            const std::vector<unsigned char> block = read(continuations_[i].address, continuations_[i].size);
            // Blocks of version 2 have a signature before, and a checksum behind their messages.
            constexpr std::size_t frameSize = 4;
            Bytes messages = block;
            if (!start->form.isOld) {
                take(messages, frameSize);
                messages = take(messages, messages.size() - std::min(messages.size(), frameSize));
            }
            readMessages(start->form, messages);
        }
        if (!data_)
            fail("is not stored in its object's header; a text of fixed length is");
        return *data_;
    }

private:
    struct Continuation {
        std::uint64_t address;
        std::uint64_t size;
    };

    std::vector<unsigned char> read(std::uint64_t address, std::uint64_t size) const {
        if (size > mostBlockBytes)
            fail("has a header of an impossible size");
        std::vector<unsigned char> block(size);
        if (!fetch_(address, block))
            fail("has a header that leads out of the file");
        return block;
    }

    void readMessages(const HeaderForm& form, Bytes block) {
        const bool isWhole = forEachMessage(form, block, [this](const HeaderMessage& message) {
            if (message.is(HeaderMessage::Type::Continuation)) {
                Bytes content = message.content;
                const std::uint64_t address = takeNumber(content, 8);
                continuations_.push_back({address, takeNumber(content, 8)});
            } else if (message.is(HeaderMessage::Type::Attribute) && !message.isShared) {
                readAttribute(message.content);
            }
            return !data_;
        });
        if (!isWhole)
            fail("has a header that is cut off");
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
        const auto padded = [&](std::uint64_t size) { return version == 1 ? (size + 7) / 8 * 8 : size; };
        Bytes name = take(message, padded(nameSize)).first(nameSize);
        name = name.first(static_cast<std::size_t>(std::find(name.begin(), name.end(), 0) - name.begin()));
        if (!std::equal(name.begin(), name.end(), attribute_.begin(), attribute_.end(),
                        [](unsigned char a, char b) { return a == static_cast<unsigned char>(b); }))
            return;
        const Bytes type = take(message, padded(typeSize));
        take(message, padded(spaceSize));
        constexpr unsigned variableLength = 9;
        constexpr unsigned text = 1;
        // A flag says that the datatype stands elsewhere in the file.
        if ((version != 1 && flags != 0) || type.size() < 2 || (type[0] & 15) != variableLength ||
            (type[1] & 15) != text)
            fail("is not a text of its own type");
        data_.emplace(message.begin(), message.end());
    }

    const MetadataGuard::Fetch& fetch_;
    std::string_view attribute_;
    std::vector<Continuation> continuations_;
    std::optional<std::vector<unsigned char>> data_;
};

/// The place in the file of an object of a global heap collection, which has to have at least `size` bytes.
std::uint64_t heapObject(const MetadataGuard::Fetch& fetch, std::uint64_t collection, std::uint64_t number,
                         std::uint64_t size) {
    std::array<unsigned char, 16> head{};
    constexpr std::array<unsigned char, 4> signature{'G', 'C', 'O', 'L'};
    if (!fetch(collection, head) || !std::equal(signature.begin(), signature.end(), head.begin()))
        fail("refers to a heap that is not there");
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

std::string variableText(const MetadataGuard::Fetch& fetch, std::uint64_t header, std::string_view attribute,
                         std::size_t most) {
    const std::vector<unsigned char> data = HeaderSearch(fetch, attribute).find(header);
    Bytes rest = data;
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
