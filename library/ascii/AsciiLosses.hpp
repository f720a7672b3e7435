// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ascii/AsciiPlan.hpp"
#include "convlib/WrittenFile.hpp"
#include "library/export/PlannedGrids.hpp"
#include "library/report/Losses.hpp"

#include <span>

namespace Tidewatch {

using ExportLib::AsciiSettings;
using PlannedTexts = PlannedGrids<ExportLib::AsciiPlan>;

/// Adds what text files drop or change of a grid. `record` is the exporter's record of written files.
void addAsciiLosses(const ExportedGrid& exported, const PlannedTexts::Grid& planned,
                    const AsciiSettings& settings, bool choosesCells,
                    std::span<const ConvLib::WrittenFile> record, Losses& losses);

} // namespace Tidewatch
