// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
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
        return isFilled && hasRun(bytes);
    }

    /// Whether several bytes in a row are what new memory is filled with.
    [[nodiscard]] static bool hasRun(std::span<const std::byte> bytes) {
        constexpr std::byte filling{0xa5};
        constexpr std::uint32_t word = 0xa5a5a5a5;
        constexpr std::ptrdiff_t inARow = 8;
        // A run has at least one whole word, and few others have: the words of a block are compared first, several at a time.
        constexpr std::size_t block = 4096;
        for (std::size_t begin = 0; begin < bytes.size(); begin += block) {
            const auto words = bytes.subspan(begin, std::min(block, bytes.size() - begin));
            bool isFound = false;
            for (std::size_t i = 0; i + sizeof word <= words.size(); i += sizeof word) {
                std::uint32_t value = 0;
                std::memcpy(&value, words.data() + i, sizeof value);
                isFound |= value == word;
            }
            // The run may begin before the block or end behind it.
            const std::size_t before = std::min(begin, static_cast<std::size_t>(inARow));
            const auto around = bytes.subspan(
                begin - before, std::min(before + words.size() + inARow, bytes.size() - begin + before));
            if (isFound && std::search_n(around.begin(), around.end(), inARow, filling) != around.end())
                return true;
        }
        return false;
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
