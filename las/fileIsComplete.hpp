// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include <laswriter.hpp>

namespace ExportLib {

/// Whether the closed file at `path` reaches as far as it must. LASlib does not tell of output errors, and
/// the size that its writers give is the one that the file has come to, so the file itself is asked.
///
/// A plain file has to hold `points` records behind its header, a compressed one has to end in the table of
/// its chunks (LASzip writes that last, and its place before the first chunk), extended records aside; neither may be shorter than
/// `bytes`. `header` is the one that the writer was opened with, `points` the points that it was given. A
/// block that got lost on the way while later ones arrived is not noticed, nor, in a compressed file, the
/// loss of the last one or two bytes alone.
///
/// What is not a regular file, a device for example, has nothing to ask for and counts as complete.
[[nodiscard]] bool fileIsComplete(const std::string& path, std::uint64_t bytes, const LASheader& header,
                                  std::uint64_t points);

} // namespace ExportLib
