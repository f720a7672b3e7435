// SPDX-License-Identifier: Apache-2.0
#include "anchor/printable.hpp"

namespace Anchor {

std::string printable(std::string_view text) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string result;
    result.reserve(text.size());
    for (const char character : text) {
        if (isControlCharacter(character)) {
            const auto byte = static_cast<unsigned char>(character);
            result += {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
        } else {
            result += character;
        }
    }
    return result;
}

} // namespace Anchor
