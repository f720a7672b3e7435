// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace Tidewatch::Hdf5 {

/// Whether a text is valid UTF-8 (RFC 3629): no truncated or overlong sequences, no surrogates, nothing
/// beyond U+10FFFF.
[[nodiscard]] bool isUtf8(std::string_view text) noexcept;

} // namespace Tidewatch::Hdf5
