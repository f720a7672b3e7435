// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host/report/Messages.hpp"
#include "host/report/ProgressBar.hpp"
#include "library/export/ExportReport.hpp"
#include "library/report/Losses.hpp"

#include <string>
#include <vector>

namespace Tidewatch {

/// What a command says while it works and at the end.
struct ReportOptions {
    ProgressWish progress = ProgressWish::Automatic;
    /// Errors, and what was asked for by an option; nothing else.
    bool quiet = false;
    bool json = false;
};

/// All that a command says: messages and progress while it works, losses, and the summary of what is in
/// place.
class Report {
public:
    Report(const ReportOptions& options, std::string command);

    [[nodiscard]] Messages& messages() noexcept { return messages_; }
    [[nodiscard]] const Anchor::StrongPtr<ProgressBar>& bar() const noexcept { return bar_; }

    /// Tells the losses: as warnings, or when `strict` as errors. False when they are not to be accepted.
    [[nodiscard]] bool acceptLosses(const std::vector<Loss>& losses, bool strict);

    /// Writes what is in place to standard output. Throws Anchor::FileError.
    void printSummary(const ExportReport& report) const;

private:
    ReportOptions options_;
    Messages messages_;
    Anchor::StrongPtr<ProgressBar> bar_;
    std::string command_;
};

} // namespace Tidewatch
