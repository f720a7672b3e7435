// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/check/CheckReport.hpp"

#include <span>
#include <string>

namespace Tidewatch {

/// A line for each finding, "FILE: SEVERITY KIND: PLACE: MESSAGE", followed by the number of further
/// occurrences; only faults if `faultsOnly`.
[[nodiscard]] std::string findingsText(const CheckReport& report, bool faultsOnly);

/// One line: how many files there are, and how many of them have faults, warnings and notes.
[[nodiscard]] std::string checkSummary(std::span<const CheckReport> reports);

/// A JSON document with a final newline.
[[nodiscard]] std::string checkJson(std::span<const CheckReport> reports);

} // namespace Tidewatch
