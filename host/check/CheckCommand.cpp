// SPDX-License-Identifier: Apache-2.0
#include "host/check/CheckCommand.hpp"

#include "anchor/printable.hpp"
#include "host/check/checkTexts.hpp"
#include "host/report/StandardOutput.hpp"
#include "library/ProgressParts.hpp"
#include "library/check/checkFile.hpp"

#include <cstddef>

namespace Tidewatch {

int CheckRequest::run() const {
    Report out(report, "check");
    const CheckOptions options{inputs.memoryLimit, inputs.requiresSandbox};
    std::vector<CheckReport> reports;
    bool haveFaults = false;
    for (std::size_t number = 0; number < inputs.files.size(); ++number) {
        const std::string& file = inputs.files[number];
        ProgressParts::one(*out.bar(), number, inputs.files.size(), 0, 1);
        reports.push_back(checkFile(file, options, out.bar()));
        haveFaults = haveFaults || reports.back().hasFaults();
        // Findings are shown immediately, since checking many files may take long.
        if (!report.json) {
            out.messages().status({});
            writeStandardOutput(Anchor::printableLines(findingsText(reports.back(), report.quiet)));
        }
    }
    out.bar()->end();
    if (report.json)
        writeStandardOutput(checkJson(reports));
    else if (!report.quiet)
        writeStandardOutput(checkSummary(reports));
    return haveFaults ? 1 : 0;
}

} // namespace Tidewatch
