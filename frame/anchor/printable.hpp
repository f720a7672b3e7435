// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

#include <string>
#include <string_view>

namespace Anchor {

/// Whether a byte is an ASCII control character, which has no place in a name or a message.
[[nodiscard]] constexpr bool isControlCharacter(char character) noexcept {
    return static_cast<unsigned char>(character) < 0x20 || character == 0x7f;
}

/// Text from a file, safe to use in a message: the bytes of control characters, of characters that change the direction
/// of text or end lines (Unicode 15, UAX #9 and section 23.1), and those that are not UTF-8 become "\x1b" and the like, so
/// that a hostile name cannot control the terminal, forge lines or look like another one. Other bytes are unchanged.
[[nodiscard]] TIDEWATCH_API std::string printable(std::string_view text);

/// The same for a text of several lines, which stay lines.
[[nodiscard]] TIDEWATCH_API std::string printableLines(std::string_view text);

} // namespace Anchor
