// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace Tidewatch {

/// Text from a file, fit for a message: control characters become "\x1b" and the like, so that a hostile name
/// cannot steer the terminal or forge lines. Other bytes stay as they are.
[[nodiscard]] std::string printable(std::string_view text);

} // namespace Tidewatch
