// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <string_view>

namespace Tidewatch {

/// The page without its data, in consecutive pieces, as created by view/scripts/build.mjs: the data elements
/// replace `pageDataMark`. Empty if built without npm's packages.
[[nodiscard]] std::span<const std::string_view> pageTemplate();

inline constexpr std::string_view pageDataMark = "<!--data-->";

} // namespace Tidewatch
