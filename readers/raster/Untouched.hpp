// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <malloc.h>
#include <span>
#include <string_view>

namespace Tidewatch::Raster {

/// Detects memory that a decoder has left uninitialized. Some decoders of GDAL report success for a block
/// that they have not filled, so that its previous content would become values.
///
/// In tidewatch-read, the C library fills new memory with a certain byte (see ReadingServer). Where values
/// contain several of these in a row, they are read again with another fill byte: what differs is not in the
/// file. In other processes new memory is not filled, and nothing is detected.
class Untouched {
public:
    /// Whether some of these bytes may be uninitialized.
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

    /// For its lifetime, new memory is filled with another byte.
    Untouched() { ::mallopt(M_PERTURB, other); }
    ~Untouched() { ::mallopt(M_PERTURB, usual); }
    Untouched(const Untouched&) = delete;
    Untouched& operator=(const Untouched&) = delete;

private:
    static constexpr int usual = 0x5a; // of which the C library writes the complement
    static constexpr int other = 0x3c;
};

} // namespace Tidewatch::Raster
