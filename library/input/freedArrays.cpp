// SPDX-License-Identifier: Apache-2.0
#include "library/input/freedArrays.hpp"

#include <malloc.h>

namespace Tidewatch {

void giveFreedArraysBack() noexcept {
#ifdef M_MMAP_THRESHOLD
    // A threshold that is set stays: without this call it grows with the blocks that are freed.
    static_cast<void>(::mallopt(M_MMAP_THRESHOLD, 512 << 10));
    // Threads allocate rarely, for each chunk of points, so they hardly wait for each other. What they free at the end of
    // this one memory is soon needed again.
    static_cast<void>(::mallopt(M_ARENA_MAX, 1));
    static_cast<void>(::mallopt(M_TRIM_THRESHOLD, 32 << 20));
#endif
}

} // namespace Tidewatch
