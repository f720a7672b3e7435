// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <string_view>

namespace Tidewatch {

/// Whether a file name ends in an extension, given in lower case; ignores the case of the name.
[[nodiscard]] inline bool endsIn(std::string_view text, std::string_view extension) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return text.size() >= extension.size() && std::equal(extension.rbegin(), extension.rend(), text.rbegin(),
                                                         [&](char a, char b) { return a == lower(b); });
}

} // namespace Tidewatch
