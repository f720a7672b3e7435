// SPDX-License-Identifier: Apache-2.0
#include "host/report/Report.hpp"

#include "host/report/StandardOutput.hpp"
#include "host/report/summaryText.hpp"

#include <utility>

namespace Tidewatch {

Report::Report(const ReportOptions& options, std::string command)
    : options_(options),
      messages_(options.quiet ? Messages::Verbosity::Quiet : Messages::Verbosity::Normal),
      bar_(
          Anchor::makeStrong<ProgressBar>(options.quiet ? ProgressMode::Never : options.progress, messages_)),
      command_(std::move(command)) {}

bool Report::acceptLosses(const std::vector<Loss>& losses, bool strict) {
    for (const Loss& loss : losses) {
        if (strict)
            messages_.error(loss.message);
        else
            messages_.warning(loss.message);
    }
    if (!strict || losses.empty())
        return true;
    messages_.error("nothing was put in place, because --strict refuses losses");
    return false;
}

void Report::printSummary(const ExportReport& report) const {
    if (options_.json)
        writeStandardOutput(summaryJson(command_, report));
    else if (!options_.quiet)
        writeStandardOutput(summaryText(report));
}

} // namespace Tidewatch
