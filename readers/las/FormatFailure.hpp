// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Error.hpp"

#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch::Las {

/// Throws Anchor::FormatError "path: object: what", with `what` and the arguments formatted by fmt.
template <class... Arguments>
[[noreturn]] void failFormat(std::string_view path, std::string_view object,
                             fmt::format_string<Arguments...> what, Arguments&&... arguments) {
    throw Anchor::FormatError(
        fmt::format("{}: {}: {}", path, object, fmt::format(what, std::forward<Arguments>(arguments)...)));
}

} // namespace Tidewatch::Las
