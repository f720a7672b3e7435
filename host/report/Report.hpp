// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host/report/Messages.hpp"
#include "host/report/ProgressBar.hpp"
#include "library/export/ExportPlan.hpp"
#include "library/export/ExportReport.hpp"
#include "library/report/Losses.hpp"

#include <string>
#include <vector>

namespace Tidewatch {

/// What a command prints while it works and at the end.
struct ReportOptions {
    ProgressMode progress = ProgressMode::Automatic;
    /// Print only errors and output that an option requested.
    bool quiet = false;
    /// Print all messages of the exporters, even unimportant ones.
    bool verbose = false;
    bool json = false;
};

/// The output of a command: messages and progress while it works, losses, and the summary of the files in
/// place.
class Report {
public:
    Report(const ReportOptions& options, std::string command);

    [[nodiscard]] Messages& messages() noexcept { return messages_; }
    [[nodiscard]] const Anchor::StrongPtr<ProgressBar>& bar() const noexcept { return bar_; }

    /// Prints the losses, some of each kind: as warnings, or as errors if they are refused. False if one is
    /// refused.
    [[nodiscard]] bool acceptLosses(const std::vector<Loss>& losses, const LossPolicy& policy);

    /// Prints remarks as warnings; of many, only the first ones.
    void printNotes(const std::vector<std::string>& notes);

    /// Writes the summary of the files in place to standard output. Throws Anchor::FileError.
    void printSummary(const ExportReport& report) const;

    /// Prints what became of outputs that stand by themselves, and the summary. False if one failed.
    [[nodiscard]] bool printEach(const ExportReport& report, const LossPolicy& policy);

    /// Prints what would be done. False if something is in the way, or there is nothing to do.
    [[nodiscard]] bool printPlan(const ExportPlan& plan, const LossPolicy& policy);

private:
    void printLosses(const std::vector<Loss>& losses, const LossPolicy& policy, bool asErrors);
    void printFirst(const std::vector<std::string>& texts, std::string_view rest,
                    void (Messages::*print)(std::string_view));
    void printText(const std::string& all, const std::string& onAScreen) const;

    ReportOptions options_;
    Messages messages_;
    Anchor::StrongPtr<ProgressBar> bar_;
    std::string command_;
};

} // namespace Tidewatch
