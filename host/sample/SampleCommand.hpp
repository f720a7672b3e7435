// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host/report/Report.hpp"
#include "library/sample/SampleSurvey.hpp"

#include <string>

namespace Tidewatch {

/// `tidewatch sample`: a synthetic survey as a bundle file.
struct SampleRequest {
    SampleOptions survey;
    std::string output;
    bool overwrite = false;
    ReportOptions report;

    /// Returns the exit status. Throws Anchor::Error if the file cannot be written, and Interrupted; then
    /// nothing has been put in place.
    [[nodiscard]] int run() const;
};

} // namespace Tidewatch
