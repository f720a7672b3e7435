// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/export/RunRecorder.hpp"
#include "library/las/LasSettings.hpp"
#include "library/las/LasWalk.hpp"
#include "library/report/Losses.hpp"

namespace Tidewatch {

/// What LAS files do not carry of a grid, or not as it was.
void addLasLosses(const ExportedGrid& exported, const LasWalk::Grid& grid, const LasSettings& settings,
                  Losses& losses);

} // namespace Tidewatch
