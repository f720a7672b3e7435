// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/export/ExportReport.hpp"

#include <string>

namespace Tidewatch {

/// A line a file: "out/cloud.pcd: 1234 points, 56789 bytes", with ", added to 11 bytes" where the file held something
/// before.
[[nodiscard]] std::string summaryText(const ExportReport& report);

/// The summary as a JSON document, ended by a newline; bytes that are not UTF-8 are replaced.
[[nodiscard]] std::string summaryJson(const std::string& command, const ExportReport& report);

} // namespace Tidewatch
