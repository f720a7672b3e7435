// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

#include <string_view>

/// Names of grids, charts, fields and fragments that come out of files and become parts of paths.
namespace Anchor {

/// Why a name must not become one component of a path: "is empty", for example; empty text if it may.
[[nodiscard]] TIDEWATCH_API std::string_view nameFault(std::string_view name) noexcept;

/// Whether a character may be part of such a name.
[[nodiscard]] TIDEWATCH_API bool isFitForName(char character) noexcept;

} // namespace Anchor
