// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/WrittenFile.hpp"
#include "library/ascii/AsciiWalk.hpp"
#include "library/report/Losses.hpp"

#include <span>

namespace Tidewatch {

/// What text files do not carry of a grid, or not as it was. `record` is the exporter's record of written
/// files.
void addAsciiLosses(const ExportedGrid& exported, const AsciiWalk::Grid& grid, const AsciiSettings& settings,
                    std::span<const ConvLib::WrittenFile> record, Losses& losses);

} // namespace Tidewatch
