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
    printLosses(losses, policy, isRefused);
    if (isRefused)
        messages_.error(
            "nothing was put in place, because --strict refuses losses; --accept says which are fine");
    return !isRefused;
}

void Report::printLosses(const std::vector<Loss>& losses, const LossPolicy& policy, bool asErrors) {
    for (const Loss& loss : policy.shown(losses, "; --json lists all")) {
        if (asErrors)
            messages_.error(loss.message);
        else
            messages_.warning(loss.message);
    }
}

void Report::printNotes(const std::vector<std::string>& notes) {
    printFirst(notes, "remarks", &Messages::warning);
}

void Report::printFirst(const std::vector<std::string>& texts, std::string_view rest,
                        void (Messages::*print)(std::string_view)) {
    constexpr std::size_t most = 8;
    const std::size_t shown = texts.size() > most ? most - 1 : texts.size();
    for (std::size_t i = 0; i < shown; ++i)
        (messages_.*print)(texts[i]);
    if (shown != texts.size())
        (messages_.*
         print)(fmt::format("... and {} more {}; --json lists all", grouped(texts.size() - shown), rest));
}

void Report::printText(const std::string& all, const std::string& onAScreen) const {
    if (options_.quiet)
        return;
    if (::isatty(STDOUT_FILENO) == 1)
        writeStandardOutput(Anchor::printableLines(onAScreen));
    else
        writeStandardOutput(all);
}

void Report::printSummary(const ExportReport& report) const {
    if (options_.json)
        writeStandardOutput(summaryJson(command_, report));
    else
        printText(summaryText(report), summaryText(report, filesOnAScreen));
}

bool Report::printEach(const ExportReport& report, const LossPolicy& policy) {
    printNotes(report.notes);
    for (const std::string& error : report.errors)
        messages_.error(error);
    printLosses(report.losses, policy, false);
    std::vector<std::string> failures;
    for (const ExportReport::Failure& failure : report.failures)
        failures.push_back(failure.message);
    printFirst(failures, "failures", &Messages::error);
    printSummary(report);
    if (report.existing != 0)
        messages_.note(fmt::format("tidewatch: {} of {} existed already", grouped(report.existing),
                                   counted(report.outputs, "output")));
    if (!failures.empty())
        messages_.error(fmt::format("{} failed; {} of {} are in place", grouped(failures.size()),
                                    grouped(report.done + report.existing),
                                    counted(report.outputs, "output")));
    else if (!report.whyNothing.empty())
        messages_.error("nothing was written: " + report.whyNothing);
    return failures.empty() && report.errors.empty() && report.whyNothing.empty();
}

bool Report::printPlan(const ExportPlan& plan, const LossPolicy& policy) {
    printNotes(plan.notes);
    printLosses(plan.losses, policy, policy.refuses(plan.losses));
    if (options_.json)
        writeStandardOutput(planJson(command_, plan));
    else
        printText(planText(plan), planText(plan, filesOnAScreen));
    printFirst(plan.obstacles, "obstacles", &Messages::error);
    if (!plan.whyNothing.empty())
        messages_.error("nothing would be written: " + plan.whyNothing);
    return plan.obstacles.empty() && plan.whyNothing.empty();
}

} // namespace Tidewatch
