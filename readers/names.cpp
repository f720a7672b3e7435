// SPDX-License-Identifier: Apache-2.0
#include "readers/names.hpp"

#include "anchor/Error.hpp"
#include "anchor/printable.hpp"

#include <algorithm>
#include <filesystem>

#include <fmt/format.h>

namespace Tidewatch {

std::string_view nameFault(std::string_view name) noexcept {
    if (name.empty())
        return "is empty";
    if (name == "." || name == "..")
        return "stands for a folder";
    const auto unfit = std::find_if_not(name.begin(), name.end(), isFitForName);
    if (unfit == name.end())
        return {};
    return Anchor::isControlCharacter(*unfit) ? "holds a control character" : "holds a slash or a backslash";
}

bool isFitForName(char character) noexcept {
    return character != '/' && character != '\\' && !Anchor::isControlCharacter(character);
}

std::string gridNameOf(const std::string& path) {
    std::string name = std::filesystem::path(path).stem().string();
    if (const std::string_view fault = nameFault(name); !fault.empty())
        throw Anchor::FormatError(fmt::format("{}: the name of its grid, \"{}\", {}", Anchor::printable(path),
                                              Anchor::printable(name), fault));
    return name;
}

} // namespace Tidewatch
