// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host/report/Report.hpp"
#include "library/input/Inputs.hpp"

namespace Tidewatch {

/// `tidewatch info`: shows the contents of the inputs.
struct InfoRequest {
    InputOptions inputs;
    /// Whether to read the positions if their bounding box is not known.
    bool bounds = false;
    /// Whether to show grids, skeletons, charts and fields.
    bool fields = false;
    /// Whether to read everything for ranges of fields, and points by class and return.
    bool statistics = false;
    ReportOptions report;

    /// Returns the exit status. Throws Anchor::Error if an input cannot be read, and Interrupted.
    [[nodiscard]] int run() const;
};

} // namespace Tidewatch
