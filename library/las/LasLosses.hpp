// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/export/RunRecorder.hpp"
#include "library/las/LasRecorder.hpp"
#include "library/report/Losses.hpp"

namespace Tidewatch {

/// Adds what LAS files drop or change of a grid.
void addLasLosses(const ExportedGrid& exported, const LasRecorder::Grid& grid,
                  const ExportLib::LasSettings& settings, Losses& losses);

} // namespace Tidewatch
