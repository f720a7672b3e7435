// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include <laswriter.hpp>

namespace ExportLib {

/// Whether the closed file at `path` is complete. LASlib does not report output errors, and the size that its
/// writers return is the actual size of the file, so the file itself is examined.
///
/// A plain file has to contain `points` records after its header, a compressed one has to end with the chunk
/// table (LASzip writes that last, and its position before the first chunk), extended records aside; neither
/// may be shorter than `bytes`. `header` is the one that the writer was opened with, `points` the number of
/// points written. A lost block followed by intact ones is not detected, nor, in a compressed file, the loss
/// of only the last one or two bytes.
///
/// Anything but a regular file, such as a device, counts as complete.
[[nodiscard]] bool fileIsComplete(const std::string& path, std::uint64_t bytes, const LASheader& header,
                                  std::uint64_t points);

} // namespace ExportLib
