// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>

namespace Tidewatch::Hdf5 {

/// Whether the content of a link message is one that the library can decode (HDF5 File Format Specification,
/// section IV.A.2.g).
[[nodiscard]] bool isLink(std::span<const unsigned char> content);

/// Whether the content of a dataspace message has the extents that it says it has, and their product is below
/// 2^64 (section IV.A.2.b).
[[nodiscard]] bool isDataspace(std::span<const unsigned char> content);

/// Whether the content of a datatype message ends where it should, its members and parents included; the
/// library reads on until it has found all that the type says it has (section IV.A.2.d).
[[nodiscard]] bool isDatatype(std::span<const unsigned char> content);

/// Whether the content of a data layout message is of version 3 or later, and where it is one of chunks, has
/// axes and no extent of 0, the size of an element included; the library divides by them (section IV.A.2.i).
/// Older versions, of before HDF5 1.6.3, are refused: the library reads some of them beyond their end.
[[nodiscard]] bool isDataLayout(std::span<const unsigned char> content);

/// Whether the content of an attribute message has the name, the type, the extents and all the data that it
/// says it has; the library reads on until it has them (section IV.A.2.m). A type or extents that stand
/// elsewhere in the file cannot be checked here and are none.
[[nodiscard]] bool isAttribute(std::span<const unsigned char> content);

} // namespace Tidewatch::Hdf5
