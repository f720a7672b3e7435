// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/check/checkFile.hpp"

#include <string_view>

namespace Tidewatch {

/// Whether a file that begins with `head` is an ESRI ASCII grid.
[[nodiscard]] bool looksLikeEsriGrid(std::string_view head);

/// Checks an ESRI ASCII grid (Esri, "Esri ASCII raster format"), or several consecutive ones, and the .prj
/// file beside it.
void checkEsriGrid(CheckReport& report, const Anchor::StrongPtr<Progress>& progress);

} // namespace Tidewatch
