// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"
#include "sheaf/Bundle.hpp"

#include <cstdint>
#include <functional>
#include <string>

namespace Tidewatch {

/// How a bundle file is written.
struct BundleFileWriteOptions {
    /// Called before each array with the number of arrays done and of all arrays, and several times a second
    /// within large ones. May throw to stop: the exception passes through, and the file is left unfinished.
    /// May be empty.
    std::function<void(std::uint64_t done, std::uint64_t total)> Progress;

    /// The level of compression, from 1 (fast) to 9 (small) as in zlib; 0 for none. Arrays of a few kilobytes
    /// are never compressed.
    unsigned Compression = 4;
};

/// Writes a bundle as a bundle file (docs/bundle-file.md describes the format): every live slice and grid
/// with its charts, fragments, skeletons, fields and arrays. The same bundle gives the same bytes.
///
/// Arrays are created and released one at a time, so that a bundle larger than memory can be written.
///
/// An existing file is overwritten, and a failure leaves an unfinished file: write to a temporary name and
/// rename. Throws Anchor::FileError with path and cause when the file cannot be written, or is an input that
/// a bundle still refers to, and when the library that writes it cannot be loaded; Anchor::ModelError when
/// the bundle contains what the format cannot store: a name that is not valid as a path component, a
/// representation in another skeleton, data with and without fragments in one field, an array whose element
/// type is not its field's, uniform positions that are not finite or whose spacing is not above 0, or
/// statements and reference systems that the reader would refuse (texts that contain a zero or are too long,
/// steps that are not above 0, too many records or bytes); and what creating an array throws. Encodings of a
/// number type that extra bytes of LAS files do not have are left out.
TIDEWATCH_API void writeBundleFile(const Sheaf::Bundle& bundle, const std::string& path,
                                   const BundleFileWriteOptions& options = {});

} // namespace Tidewatch
