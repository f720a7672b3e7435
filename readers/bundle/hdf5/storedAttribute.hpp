// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Tidewatch::Hdf5 {

/// Fills a block with bytes of a file from an address on; false when they are not all there.
using Fetch = std::function<bool(std::uint64_t address, std::span<unsigned char> target)>;

/// What a file stores for an attribute, read straight from the header of its object.
///
/// The library takes the size of an attribute's data from its type and extents, and hands out what lies behind
/// where the file stores less. Here all is compared.
struct StoredAttribute {
    /// The message that describes its type.
    std::vector<unsigned char> type;
    /// Its data, and the padding behind.
    std::vector<unsigned char> data;
};

/// Finds an attribute in the object header at an address. Nothing where it is not in the header itself or its
/// continuations: objects of more than eight attributes may keep them elsewhere. Throws Anchor::FormatError, with
/// a text that says only what is wrong with the attribute, when its message is shorter than what it says it has.
/// (HDF5 File Format Specification, sections IV.A.1, IV.A.2.b, IV.A.2.d and IV.A.2.m.)
[[nodiscard]] std::optional<StoredAttribute> storedAttribute(const Fetch& fetch, std::uint64_t header,
                                                             std::string_view attribute);

/// The text of an attribute whose datatype is a string of variable length. The library would take the text's
/// length from the attribute and its place from a heap without comparing the two, or the heap with itself.
/// Throws as storedAttribute() does, also when the text is damaged or has more than `most` bytes.
/// (Sections III.E and VIII.)
[[nodiscard]] std::string variableText(const Fetch& fetch, const StoredAttribute& attribute,
                                       std::size_t most);

} // namespace Tidewatch::Hdf5
