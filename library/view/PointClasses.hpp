// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"
#include "library/view/ViewColor.hpp"

#include <cstdint>
#include <string_view>

namespace Tidewatch {

/// The name of a class of points (LAS 1.4 R15, table 17: "ASPRS Standard LIDAR Point Classes").
[[nodiscard]] TIDEWATCH_API std::string_view pointClassName(std::uint8_t code) noexcept;

/// The colour in which views show a class.
[[nodiscard]] ViewColor pointClassColor(std::uint8_t code) noexcept;

} // namespace Tidewatch
