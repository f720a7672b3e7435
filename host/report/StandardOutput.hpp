// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace Tidewatch {

/// Writes all of a text to standard output at once. Throws Anchor::FileError when it cannot be written, a
/// closed reader included.
void writeStandardOutput(std::string_view text);

/// Opens descriptors 0 to 2 where the program was started without them, so that no output file gets one of
/// these numbers. Nothing can be written to one that was opened here.
void openMissingStandardStreams();

} // namespace Tidewatch
