// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace Tidewatch {

/// Opens a file with the desktop's own program (xdg-open) and does not wait for it. False where there is none.
[[nodiscard]] bool openInBrowser(const std::string& path);

} // namespace Tidewatch
