// SPDX-License-Identifier: Apache-2.0
#include "anchor/names.hpp"

#include "anchor/printable.hpp"

#include <algorithm>

namespace Anchor {

std::string_view nameFault(std::string_view name) noexcept {
    if (name.empty())
        return "is empty";
    if (name == "." || name == "..")
        return "stands for a folder";
    const auto unfit = std::find_if_not(name.begin(), name.end(), isFitForName);
    if (unfit == name.end())
        return {};
    return isControlCharacter(*unfit) ? "holds a control character" : "holds a slash or a backslash";
}

bool isFitForName(char character) noexcept {
    return character != '/' && character != '\\' && !isControlCharacter(character);
}

} // namespace Anchor
