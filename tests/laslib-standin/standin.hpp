// SPDX-License-Identifier: Apache-2.0
//
// A stand-in for LASlib's own library, where that differs from laslib/: no output error is told, the size of
// a file is the one that it has come to, and an error ends the process unless that is switched off. It has
// two source files, linked in place of those of laslib/ of the same names, and LASlib's header of the switch.
#pragma once

#include <cstdint>
#include <optional>

namespace Standin {

/// Bytes of each file that the disk has room for; without a number, there is no end to it.
inline std::optional<std::uint64_t> room;

/// What every function does that may end the process with an error: whether there is one or not, it ends it
/// here while the switch has not been turned off.
void endWhileHalting();

} // namespace Standin
