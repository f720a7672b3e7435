// SPDX-License-Identifier: Apache-2.0
#include "convlib/Glob.hpp"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <optional>

namespace ConvLib {

namespace {

/// Bytes that are not UTF-8 become characters beyond Unicode's last, U+10FFFF.
constexpr char32_t strayByte = 0x110000;

/// Removes and returns the first character of a non-empty text (RFC 3629; over-long forms are accepted, because all
/// that matters here is that equal bytes give equal characters).
char32_t takeCharacter(std::string_view& text) noexcept {
    const auto byteAt = [&](std::size_t place) { return static_cast<unsigned char>(text[place]); };
    const unsigned char lead = byteAt(0);
    const std::size_t size = lead < 0x80   ? 1
                             : lead < 0xC0 ? 0
                             : lead < 0xE0 ? 2
                             : lead < 0xF0 ? 3
                             : lead < 0xF8 ? 4
                                           : 0;
    char32_t character = size < 2 ? lead : lead & (0x7FU >> size);
    bool isWhole = size != 0 && size <= text.size();
    for (std::size_t place = 1; isWhole && place < size; ++place) {
        isWhole = (byteAt(place) & 0xC0U) == 0x80;
        character = character << 6 | (byteAt(place) & 0x3FU);
    }
    text.remove_prefix(isWhole ? size : 1);
    return isWhole ? character : strayByte + lead;
}

struct CharacterClass {
    std::string_view name;
    bool (*contains)(char32_t c);
};

constexpr bool isBetween(char32_t c, char32_t first, char32_t last) {
    return first <= c && c <= last;
}
constexpr bool isDigit(char32_t c) {
    return isBetween(c, '0', '9');
}
constexpr bool isUpper(char32_t c) {
    return isBetween(c, 'A', 'Z');
}
constexpr bool isLower(char32_t c) {
    return isBetween(c, 'a', 'z');
}
constexpr bool isAlnum(char32_t c) {
    return isDigit(c) || isUpper(c) || isLower(c);
}

constexpr CharacterClass classes[] = {
    {"[:alnum:]", isAlnum},
    {"[:alpha:]", [](char32_t c) { return isUpper(c) || isLower(c); }},
    {"[:blank:]", [](char32_t c) { return c == ' ' || c == '\t'; }},
    {"[:cntrl:]", [](char32_t c) { return c < ' ' || c == 0x7F; }},
    {"[:digit:]", isDigit},
    {"[:graph:]", [](char32_t c) { return isBetween(c, '!', '~'); }},
    {"[:lower:]", isLower},
    {"[:print:]", [](char32_t c) { return isBetween(c, ' ', '~'); }},
    {"[:punct:]", [](char32_t c) { return isBetween(c, '!', '~') && !isAlnum(c); }},
    {"[:space:]", [](char32_t c) { return c == ' ' || isBetween(c, '\t', '\r'); }},
    {"[:upper:]", isUpper},
    {"[:xdigit:]", [](char32_t c) { return isDigit(c) || isBetween(c, 'A', 'F') || isBetween(c, 'a', 'f'); }},
};

/// Removes and returns the first character of a glob, or the one after a backslash.
char32_t takeLiteral(std::string_view& glob) noexcept {
    if (glob.size() > 1 && glob.front() == '\\')
        glob.remove_prefix(1);
    return takeCharacter(glob);
}

/// Whether the bracket expression at the start of the glob contains the character; removes the expression. Nullopt, and
/// the glob unchanged, for a bracket that is never closed.
std::optional<bool> takeBrackets(std::string_view& glob, char32_t character) noexcept {
    std::string_view rest = glob.substr(1);
    const bool isNegated = !rest.empty() && (rest.front() == '!' || rest.front() == '^');
    if (isNegated)
        rest.remove_prefix(1);
    bool isIn = false;
    for (bool isFirst = true; !rest.empty(); isFirst = false) {
        if (rest.front() == ']' && !isFirst) {
            glob = rest.substr(1);
            return isIn != isNegated;
        }
        const auto* const named =
            std::find_if(std::begin(classes), std::end(classes),
                         [&](const CharacterClass& one) { return rest.starts_with(one.name); });
        if (named != std::end(classes)) {
            isIn = isIn || named->contains(character);
            rest.remove_prefix(named->name.size());
            continue;
        }
        const char32_t first = takeLiteral(rest);
        char32_t last = first;
        // A hyphen before the closing bracket is literal.
        if (rest.size() > 1 && rest[0] == '-' && rest[1] != ']') {
            rest.remove_prefix(1);
            last = takeLiteral(rest);
        }
        isIn = isIn || isBetween(character, first, last);
    }
    return std::nullopt;
}

/// Whether the glob's first item, which is not "*", matches a character; if so, removes the item.
bool takeItem(std::string_view& glob, char32_t character) noexcept {
    std::string_view rest = glob;
    bool isMatch = false;
    std::optional<bool> inBrackets;
    if (rest.front() == '[' && (inBrackets = takeBrackets(rest, character))) {
        isMatch = *inBrackets;
    } else if (rest.front() == '?') {
        rest.remove_prefix(1);
        isMatch = true;
    } else {
        isMatch = takeLiteral(rest) == character;
    }
    if (isMatch)
        glob = rest;
    return isMatch;
}

} // namespace

bool globMatches(std::string_view glob, std::string_view name) noexcept {
    // Where to backtrack to, with one more character for the last "*". Earlier stars need no backtracking: whatever
    // they could match, the last one can match, too.
    std::optional<std::string_view> globBehindStar;
    std::string_view nameBehindStar;
    while (!name.empty() || !glob.empty()) {
        if (!glob.empty() && glob.front() == '*') {
            glob.remove_prefix(1);
            globBehindStar = glob;
            nameBehindStar = name;
            continue;
        }
        if (!glob.empty() && !name.empty()) {
            std::string_view rest = name;
            const char32_t character = takeCharacter(rest);
            if (takeItem(glob, character)) {
                name = rest;
                continue;
            }
        }
        if (!globBehindStar || nameBehindStar.empty())
            return false;
        takeCharacter(nameBehindStar);
        glob = *globBehindStar;
        name = nameBehindStar;
    }
    return true;
}

std::string globOf(std::string_view name) {
    std::string glob;
    for (const char c : name) {
        if (std::string_view("*?[\\").find(c) != std::string_view::npos)
            glob += '\\';
        glob += c;
    }
    return glob;
}

} // namespace ConvLib
