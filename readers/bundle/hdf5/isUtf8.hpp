// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace Tidewatch::Hdf5 {

/// Whether a text is UTF-8 (RFC 3629): no sequence is cut off or longer than it need be, and none stands for half of a
/// surrogate pair or for what lies beyond U+10FFFF.
[[nodiscard]] bool isUtf8(std::string_view text) noexcept;

} // namespace Tidewatch::Hdf5
