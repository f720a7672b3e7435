// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

namespace Tidewatch::Hdf5 {

/// What is needed to find the messages in a block of an object header (HDF5 File Format Specification,
/// section IV.A.1).
struct HeaderForm {
    /// Version 1; else version 2.
    bool isOld = true;
    /// Messages carry a creation order (version 2 only).
    bool hasOrder = false;
};

/// The first block of an object header: its form, and where its messages are.
struct HeaderStart {
    HeaderForm form;
    std::uint64_t offset = 0;
    std::uint64_t size = 0;

    /// How many bytes of a header read() asks for.
    static constexpr std::size_t mostPrefixBytes = 34;

    /// From the first bytes of a header; nothing when they are none, or too few.
    [[nodiscard]] static std::optional<HeaderStart> read(std::span<const unsigned char> prefix);
};

/// A message of an object header, as it stands in a block that outlives it.
struct HeaderMessage {
    enum class Type : std::uint8_t {
        Dataspace = 0x01,
        Datatype = 0x03,
        Link = 0x06,
        DataLayout = 0x08,
        Attribute = 0x0c,
        Continuation = 0x10
    };

    std::uint64_t type = 0; // one of those, or any other
    /// The content stands elsewhere in the file; here is only where.
    bool isShared = false;
    std::span<const unsigned char> content;

    [[nodiscard]] bool is(Type wanted) const noexcept { return type == static_cast<std::uint64_t>(wanted); }
};

/// Calls visit with each message of a block (for one of version 2: without its signature and checksum) until
/// one call says false. What is left over at the end, too short for a message, is passed over. False when a
/// message is longer than the rest of the block.
[[nodiscard]] bool forEachMessage(const HeaderForm& form, std::span<const unsigned char> block,
                                  const std::function<bool(const HeaderMessage& message)>& visit);

} // namespace Tidewatch::Hdf5
