// SPDX-License-Identifier: Apache-2.0
#include "anchor/printable.hpp"

#include <cstddef>
#include <optional>

namespace Anchor {

namespace {

/// A character in UTF-8 (RFC 3629).
struct Character {
    /// 1 for a byte that begins no valid sequence.
    std::size_t bytes = 1;
    /// Nothing for such a byte.
    std::optional<char32_t> code;
};

Character characterAt(std::string_view text) {
    const auto byteAt = [&](std::size_t place) { return static_cast<unsigned char>(text[place]); };
    const unsigned char first = byteAt(0);
    if (first < 0x80)
        return {1, first};
    const std::size_t size = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    constexpr char32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
    if (first < 0xc2 || first > 0xf4 || text.size() < size)
        return {};
    char32_t code = first & (0xffU >> (size + 1));
    for (std::size_t place = 1; place < size; ++place) {
        if ((byteAt(place) & 0xc0U) != 0x80)
            return {};
        code = code << 6 | (byteAt(place) & 0x3fU);
    }
    const bool isSurrogate = code >= 0xd800 && code <= 0xdfff;
    if (code < least[size] || code > 0x10ffff || isSurrogate)
        return {};
    return {size, code};
}

bool isHarmful(char32_t code) {
    const auto isIn = [&](char32_t first, char32_t last) { return code >= first && code <= last; };
    return code < 0x20 || isIn(0x7f, 0x9f) ||              // controls
           code == 0x61c || isIn(0x200e, 0x200f) ||        // marks of direction
           isIn(0x202a, 0x202e) || isIn(0x2066, 0x2069) || // embeddings, overrides and isolates
           isIn(0x2028, 0x2029);                           // separators of lines and paragraphs
}

} // namespace

std::string printable(std::string_view text) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const Character character = characterAt(text);
        if (character.code && !isHarmful(*character.code)) {
            result += text.substr(0, character.bytes);
        } else {
            for (const char each : text.substr(0, character.bytes)) {
                const auto byte = static_cast<unsigned char>(each);
                result += {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
            }
        }
        text.remove_prefix(character.bytes);
    }
    return result;
}

std::string printableLines(std::string_view text) {
    std::string result;
    for (std::size_t end = 0; (end = text.find('\n')) != std::string_view::npos; text.remove_prefix(end + 1))
        result += printable(text.substr(0, end)) += '\n';
    return result += printable(text);
}

} // namespace Anchor
