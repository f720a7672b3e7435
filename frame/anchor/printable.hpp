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

/// Text from a file, safe to use in a message: control characters become "\x1b" and the like, so that a
/// hostile name cannot control the terminal or forge lines. Other bytes are unchanged.
[[nodiscard]] TIDEWATCH_API std::string printable(std::string_view text);

} // namespace Anchor
