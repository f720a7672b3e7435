// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/hdf5/isUtf8.hpp"

#include <cstddef>

namespace Tidewatch::Hdf5 {

bool isUtf8(std::string_view text) noexcept {
    const auto byte = [&](std::size_t place) -> unsigned { return static_cast<unsigned char>(text[place]); };
    for (std::size_t place = 0; place < text.size();) {
        const unsigned first = byte(place);
        const std::size_t size = first < 0x80   ? 1
                                 : first < 0xC2 ? 0
                                 : first < 0xE0 ? 2
                                 : first < 0xF0 ? 3
                                                : 4;
        if (size == 0 || first > 0xF4 || text.size() - place < size)
            return false;
        for (std::size_t i = 1; i < size; ++i) {
            if ((byte(place + i) & 0xC0U) != 0x80)
                return false;
        }
        // The second byte of longer sequences reveals overlong forms, surrogates, and code points beyond the
        // last.
        if (size > 2) {
            const unsigned second = byte(place + 1);
            if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
                (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F))
                return false;
        }
        place += size;
    }
    return true;
}

} // namespace Tidewatch::Hdf5
