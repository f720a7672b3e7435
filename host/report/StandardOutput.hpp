// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace Tidewatch {

/// Writes a whole text to standard output at once. Throws Anchor::FileError if it cannot be written, for
/// example to a closed pipe.
void writeStandardOutput(std::string_view text);

/// Opens those of the descriptors 0 to 2 that are closed, so that no output file gets one of these numbers.
/// The descriptors opened here cannot be written to.
void openMissingStandardStreams();

} // namespace Tidewatch
