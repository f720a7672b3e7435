// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <fstream>
#include <optional>
#include <string>

namespace Support {

/// System calls of this thread that have written, where the system counts them.
inline std::optional<std::uint64_t> writesSoFar() {
    std::ifstream file("/proc/thread-self/io");
    std::string key;
    std::uint64_t value = 0;
    while (file >> key >> value) {
        if (key == "syscw:")
            return value;
    }
    return std::nullopt;
}

/// Why a test cannot count writes here; null where it can.
inline const char* whyWritesAreNotCounted() {
#ifdef TIDEWATCH_ADDRESS_SANITIZER
    return "sanitizers: they write too, into a pipe, to find out which memory may be looked at";
#else
    return writesSoFar() ? nullptr : "no count of writes: /proc/thread-self/io does not tell it";
#endif
}

} // namespace Support
