// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host/report/Report.hpp"
#include "library/input/Inputs.hpp"

namespace Tidewatch {

/// `tidewatch check`: reports files that do not conform to their formats.
struct CheckRequest {
    /// The files, and options for those that are read by readers.
    InputOptions inputs;
    ReportOptions report;

    /// Returns the exit status: 1 if a file has a fault. Throws Anchor::FileError if standard output cannot
    /// be written, and Interrupted.
    [[nodiscard]] int run() const;
};

} // namespace Tidewatch
