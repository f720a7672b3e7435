// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace Tidewatch {

/// Opens a file with xdg-open without waiting for it. False if it is not installed.
[[nodiscard]] bool openInBrowser(const std::string& path);

} // namespace Tidewatch
