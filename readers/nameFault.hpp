// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace Tidewatch {

/// What keeps a name from becoming a path component of an output: "is empty", for example; empty text where
/// nothing does. Names of grids, charts, fields and fragments that come out of a file have to pass.
[[nodiscard]] std::string_view nameFault(std::string_view name) noexcept;

/// The control characters that a name must not hold: 0x00 to 0x1f, and 0x7f.
[[nodiscard]] constexpr bool isControlCharacter(char character) noexcept {
    return static_cast<unsigned char>(character) < 0x20 || character == '\x7f';
}

} // namespace Tidewatch
