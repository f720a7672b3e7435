// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/WrittenFile.hpp"
#include "host/ascii/AsciiWalk.hpp"
#include "host/report/Losses.hpp"

#include <span>

namespace Tidewatch {

/// What text files do not carry of a grid, or not as it was. `record` is the exporter's record of written
/// files.
void addAsciiLosses(const RunWatch::Visit& visit, const AsciiWalk::Grid& grid, const AsciiSettings& settings,
                    std::span<const ConvLib::WrittenFile> record, Losses& losses);

} // namespace Tidewatch
