// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host/report/Report.hpp"
#include "library/input/Inputs.hpp"

#include <string>

namespace Tidewatch {

/// `tidewatch bundle`: the inputs as one bundle file.
struct BundleRequest {
    InputOptions inputs;
    std::string output;
    bool overwrite = false;
    /// Losses are contents of the inputs that are not in the bundle.
    LossPolicy losses = {};
    ReportOptions report;

    /// Returns the exit status. Throws Anchor::Error if an input cannot be read or the file cannot be
    /// written, and Interrupted; then nothing has been put in place.
    [[nodiscard]] int run() const;
};

} // namespace Tidewatch
