// SPDX-License-Identifier: Apache-2.0
#include "readers/nameFault.hpp"

#include <algorithm>

namespace Tidewatch {

std::string_view nameFault(std::string_view name) noexcept {
    if (name.empty())
        return "is empty";
    if (name == "." || name == "..")
        return "stands for a folder";
    if (name.find_first_of("/\\") != std::string_view::npos)
        return "holds a slash or a backslash";
    if (std::any_of(name.begin(), name.end(), isControlCharacter))
        return "holds a control character";
    return {};
}

} // namespace Tidewatch
