// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <malloc.h>
#include <span>
#include <string_view>

namespace Tidewatch::Raster {

/// Tells values that come from the file from memory that a decoder has left as it was. Some decoders of GDAL report
/// success for a block that they have not filled, and what was in the memory before becomes values.
///
/// In tidewatch-read, the C library fills new memory with one byte (see ReadingServer). Where values hold several of
/// it in a row, they are read again with another byte there: what differs is not in the file. In other processes
/// new memory is as it is, and nothing is found.
class Untouched {
public:
    /// Whether some of these may be memory that nobody has filled.
    [[nodiscard]] static bool isSuspected(std::span<const std::byte> bytes) {
        static const bool isFilled = [] {
            const char* const tunables = std::getenv("GLIBC_TUNABLES");
            return tunables != nullptr && std::string_view(tunables).starts_with("glibc.malloc.perturb=90");
        }();
        if (!isFilled)
            return false;
        constexpr std::byte filling{0xa5};
        constexpr std::ptrdiff_t inARow = 8;
        return std::search_n(bytes.begin(), bytes.end(), inARow, filling) != bytes.end();
    }

    /// New memory is filled with another byte for as long as the object lives.
    Untouched() { ::mallopt(M_PERTURB, other); }
    ~Untouched() { ::mallopt(M_PERTURB, usual); }
    Untouched(const Untouched&) = delete;
    Untouched& operator=(const Untouched&) = delete;

private:
    static constexpr int usual = 0x5a; // of which the C library writes the complement
    static constexpr int other = 0x3c;
};

} // namespace Tidewatch::Raster
