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

/// Fills `target` with bytes of a file from an address on; false if the file ends before.
using Fetch = std::function<bool(std::uint64_t address, std::span<unsigned char> target)>;

/// An attribute as stored in the header of its object, read without the library.
///
/// The library computes the size of an attribute's data from its type and extents, and reads past the end
/// where the file stores less. Here the sizes are compared.
struct StoredAttribute {
    /// The datatype message.
    std::vector<unsigned char> type;
    /// The data, with trailing padding.
    std::vector<unsigned char> data;
};

/// Finds an attribute in the object header at an address. Nothing if it is not in the header itself or its
/// continuations: objects with more than eight attributes may store them elsewhere. Throws
/// Anchor::FormatError, with a text that says only what is wrong with the attribute, when its message is
/// truncated. (HDF5 File Format Specification, sections IV.A.1, IV.A.2.b, IV.A.2.d and IV.A.2.m.)
[[nodiscard]] std::optional<StoredAttribute> storedAttribute(const Fetch& fetch, std::uint64_t header,
                                                             std::string_view attribute);

/// The text of an attribute whose datatype is a string of variable length. The library would take the length
/// from the attribute and the address from a heap without checking them against each other, or the heap's
/// consistency. Throws as storedAttribute() does, also when the text is damaged or has more than `most`
/// bytes. (Sections III.E and VIII.)
[[nodiscard]] std::string variableText(const Fetch& fetch, const StoredAttribute& attribute,
                                       std::size_t most);

} // namespace Tidewatch::Hdf5
