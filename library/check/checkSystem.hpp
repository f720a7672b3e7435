// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/check/CheckReport.hpp"
#include "sheaf/Bundle.hpp"

#include <string>

namespace Tidewatch {

/// Checks whether the grids of a file have a coordinate reference system that can be read.
void checkSystems(CheckReport& report, const Sheaf::Bundle& bundle);

/// The same for a well-known text; `place` is for the findings.
void checkSystemText(CheckReport& report, const std::string& place, const std::string& text);

} // namespace Tidewatch
