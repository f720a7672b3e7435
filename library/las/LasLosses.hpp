// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/export/RunRecorder.hpp"
#include "library/las/LasRecorder.hpp"
#include "library/report/Losses.hpp"

namespace Tidewatch {

/// What LAS files do not carry of a grid, or not as it was.
void addLasLosses(const ExportedGrid& exported, const LasRecorder::Grid& grid,
                  const ExportLib::LasSettings& settings, Losses& losses);

} // namespace Tidewatch
