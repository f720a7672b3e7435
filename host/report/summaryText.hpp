// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/export/ExportPlan.hpp"
#include "library/export/ExportReport.hpp"

#include <cstddef>
#include <limits>
#include <string>

namespace Tidewatch {

/// One line per file: "out/cloud.pcd: 1234 points, 56789 bytes", with ", appended to 11 bytes" if the file had content
/// before. Of more than `most` files the last line says how many more there are.
[[nodiscard]] std::string summaryText(const ExportReport& report,
                                      std::size_t most = std::numeric_limits<std::size_t>::max());

/// The summary as a JSON document with a final newline; bytes that are not UTF-8 are replaced.
[[nodiscard]] std::string summaryJson(const std::string& command, const ExportReport& report);

/// The same for what would be written: "out/cloud.pcd: at most 1234 points, about 55 KiB", and a line with all of it.
[[nodiscard]] std::string planText(const ExportPlan& plan,
                                   std::size_t most = std::numeric_limits<std::size_t>::max());
[[nodiscard]] std::string planJson(const std::string& command, const ExportPlan& plan);

} // namespace Tidewatch
