// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <string_view>

namespace Tidewatch {

/// The page without its data, in pieces that follow each other, as view/scripts/build.mjs makes it: the data elements belong
/// in the place of `pageDataMark`. Empty where it was built without npm's packages.
[[nodiscard]] std::span<const std::string_view> pageTemplate();

inline constexpr std::string_view pageDataMark = "<!--data-->";

} // namespace Tidewatch
