// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host/report/Report.hpp"
#include "library/input/Inputs.hpp"

namespace Tidewatch {

/// `tidewatch info`: what the inputs hold.
struct InfoRequest {
    InputOptions inputs;
    /// Read the positions where their bounding box is not known.
    bool bounds = false;
    ReportOptions report;

    /// Gives the exit status. Throws Anchor::Error when an input cannot be read, and Interrupted.
    [[nodiscard]] int run() const;
};

} // namespace Tidewatch
