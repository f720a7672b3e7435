// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/bundle/hdf5/MetadataGuard.hpp"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Tidewatch::Hdf5 {

/// The text of an attribute whose datatype is a string of variable length, read straight from the file.
///
/// The library would take the text's length from the attribute and its place from a heap without comparing
/// the two, or the heap with itself, and read and write wherever they point. Here all is compared.
///
/// `header` is the address of the object header of what the attribute belongs to. Attributes that stand in
/// the header itself or its continuations can be read, which is where all HDF5 programs put small numbers of
/// them. Throws Anchor::FormatError, with a text that says only what is wrong with the attribute, when it is
/// not there, damaged, or has more than `most` bytes.
/// (HDF5 File Format Specification, sections III.E, IV.A.1, IV.A.2.d, IV.A.2.m and VIII.)
[[nodiscard]] std::string variableText(const MetadataGuard::Fetch& fetch, std::uint64_t header,
                                       std::string_view attribute, std::size_t most);

} // namespace Tidewatch::Hdf5
