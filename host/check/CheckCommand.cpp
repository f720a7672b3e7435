// SPDX-License-Identifier: Apache-2.0
#include "host/check/CheckCommand.hpp"

#include "host/check/checkTexts.hpp"
#include "host/report/StandardOutput.hpp"
#include "library/check/checkFile.hpp"

namespace Tidewatch {

int CheckRequest::run() const {
    Report out(report, "check");
    const CheckOptions options{inputs.memoryLimit, inputs.requiresSandbox};
    std::vector<CheckReport> reports;
    bool haveFaults = false;
    for (const std::string& file : inputs.files) {
        reports.push_back(checkFile(file, options, out.bar()));
        haveFaults = haveFaults || reports.back().hasFaults();
        // Findings are shown immediately, since checking many files may take long.
        if (!report.json)
            writeStandardOutput(findingsText(reports.back(), report.quiet));
    }
    if (report.json)
        writeStandardOutput(checkJson(reports));
    else if (!report.quiet)
        writeStandardOutput(checkSummary(reports));
    return haveFaults ? 1 : 0;
}

} // namespace Tidewatch
