// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host/report/Report.hpp"
#include "library/input/Inputs.hpp"

namespace Tidewatch {

/// `tidewatch check`: tells of files that are not what their formats say.
struct CheckRequest {
    /// The files, and how those are read that a reader reads.
    InputOptions inputs;
    ReportOptions report;

    /// Returns the exit status: 1 where a file has a fault. Throws Anchor::FileError where standard output cannot be
    /// written, and Interrupted.
    [[nodiscard]] int run() const;
};

} // namespace Tidewatch
