// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host/export/RunWatch.hpp"
#include "host/las/LasSettings.hpp"
#include "host/las/LasWalk.hpp"
#include "host/report/Losses.hpp"

namespace Tidewatch {

/// What LAS files do not carry of a grid, or not as it was.
void addLasLosses(const RunWatch::Visit& visit, const LasWalk::Grid& grid, const LasSettings& settings,
                  Losses& losses);

} // namespace Tidewatch
