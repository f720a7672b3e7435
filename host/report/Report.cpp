// SPDX-License-Identifier: Apache-2.0
#include "host/report/Report.hpp"

#include "anchor/printable.hpp"
#include "host/report/StandardOutput.hpp"
#include "host/report/summaryText.hpp"
#include "library/report/Wording.hpp"

#include <cstddef>
#include <unistd.h>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

/// Where standard output is not a terminal, programs read it, and get all.
constexpr std::size_t filesOnAScreen = 20;

} // namespace

Report::Report(const ReportOptions& options, std::string command)
    : options_(options),
      messages_(options.quiet     ? Messages::Verbosity::Quiet
                : options.verbose ? Messages::Verbosity::Verbose
                                  : Messages::Verbosity::Normal),
      bar_(
          Anchor::makeStrong<ProgressBar>(options.quiet ? ProgressMode::Never : options.progress, messages_)),
      command_(std::move(command)) {}

bool Report::acceptLosses(const std::vector<Loss>& losses, const LossPolicy& policy) {
    const bool isRefused = policy.refuses(losses);
    for (const Loss& loss : policy.shown(losses, "; --json lists all")) {
        if (isRefused)
            messages_.error(loss.message);
        else
            messages_.warning(loss.message);
    }
    if (isRefused)
        messages_.error(
            "nothing was put in place, because --strict refuses losses; --accept says which are fine");
    return !isRefused;
}

void Report::printNotes(const std::vector<std::string>& notes) {
    constexpr std::size_t most = 8;
    const std::size_t shown = notes.size() > most ? most - 1 : notes.size();
    for (std::size_t i = 0; i < shown; ++i)
        messages_.warning(notes[i]);
    if (shown != notes.size())
        messages_.warning(
            fmt::format("... and {} more remarks; --json lists all", grouped(notes.size() - shown)));
}

void Report::printSummary(const ExportReport& report) const {
    if (options_.json)
        writeStandardOutput(summaryJson(command_, report));
    else if (!options_.quiet && ::isatty(STDOUT_FILENO) == 1)
        writeStandardOutput(Anchor::printableLines(summaryText(report, filesOnAScreen)));
    else if (!options_.quiet)
        writeStandardOutput(summaryText(report));
}

} // namespace Tidewatch
