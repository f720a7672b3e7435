// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

#include <string>
#include <string_view>

namespace ConvLib {

/// Whether a name matches a shell glob: "*" matches any text, "?" one character, "[a-z0]" one character of a set,
/// "[!a-z0]" or "[^a-z0]" one that is not in the set, and a backslash makes the next character literal. Inside brackets
/// "[:digit:]" and the other POSIX classes mean their ASCII characters; a leading "]" belongs to the set; a bracket
/// that is never closed is literal.
///
/// Case-sensitive. Characters are UTF-8, whatever the locale; a byte that is not valid UTF-8 counts as a character that
/// only the same byte matches. The time grows at worst with the product of both lengths.
[[nodiscard]] TIDEWATCH_API bool globMatches(std::string_view glob, std::string_view name) noexcept;

/// A glob that matches this name and no other.
[[nodiscard]] TIDEWATCH_API std::string globOf(std::string_view name);

} // namespace ConvLib
