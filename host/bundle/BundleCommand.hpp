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
    /// What the inputs hold and the bundle does not is an error, and nothing is put in place.
    bool strict = false;
    ReportOptions report;

    /// Gives the exit status. Throws Anchor::Error when an input cannot be read or the file cannot be
    /// written, and Interrupted; then nothing has been put in place.
    [[nodiscard]] int run() const;
};

} // namespace Tidewatch
