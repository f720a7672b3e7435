// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cctype>
#include <string>
#include <string_view>

namespace Support {

/// A part of a test's name made of any text, such as a file's name: its letters and digits, with a capital
/// where something was left out: "autzen_trim.laz" gives "autzenTrimLaz".
[[nodiscard]] inline std::string testName(std::string_view text) {
    std::string name;
    bool leftOut = false;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (std::isalnum(byte) != 0)
            name += leftOut ? static_cast<char>(std::toupper(byte)) : c;
        leftOut = std::isalnum(byte) == 0;
    }
    return name;
}

} // namespace Support
