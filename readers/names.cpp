// SPDX-License-Identifier: Apache-2.0
#include "readers/names.hpp"

#include "anchor/Error.hpp"
#include "anchor/printable.hpp"

#include <filesystem>

#include <fmt/format.h>

namespace Tidewatch {

std::string gridNameOf(const std::string& path) {
    std::string name = std::filesystem::path(path).stem().string();
    if (const std::string_view fault = nameFault(name); !fault.empty())
        throw Anchor::FormatError(fmt::format("{}: the name of its grid, \"{}\", {}", Anchor::printable(path),
                                              Anchor::printable(name), fault));
    return name;
}

} // namespace Tidewatch
