// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

#include <string_view>

namespace ConvLib {

/// Whether a name matches a glob of the shell: "*" is any text, "?" one character, "[a-z0]" one character of
/// a set, "[!a-z0]" or "[^a-z0]" one that is not in it, and a backslash takes the next character as it is.
/// Inside brackets "[:digit:]" and the other classes of POSIX stand for their ASCII characters; a "]" that
/// comes first belongs to the set; a bracket that is never closed stands for itself.
///
/// Case counts. A character is one of UTF-8, whatever the locale; a byte that is not part of one counts as a
/// character that only the same byte matches. Throws nothing; at worst the time grows with the product of
/// both lengths.
[[nodiscard]] TIDEWATCH_API bool globMatches(std::string_view glob, std::string_view name) noexcept;

} // namespace ConvLib
