// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/export/ExportFormat.hpp"
#include "library/export/ExportOptions.hpp"
#include "library/export/ExportReport.hpp"
#include "library/export/RunScope.hpp"
#include "library/output/StagingFolder.hpp"
#include "library/report/Losses.hpp"

#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace Tidewatch {

/// What one run of an exporter gave.
struct RunResult {
    /// A finished file, and where it is now.
    struct File {
        std::filesystem::path staged;
        ExportReport::File file;
    };

    /// Whether the exporter finished; otherwise there are only errors.
    bool completed = true;
    std::vector<File> files;
    Losses losses;
    std::vector<std::string> notes;
    /// Errors that the exporter recorded.
    std::vector<std::string> errors;
    /// Grids without a file, and why.
    std::vector<std::string> skipped;
    /// The grids of the inputs that are in the files.
    std::set<std::string> exported;
};

/// What ExportOptions::showSettings is told of a run.
[[nodiscard]] std::string settingsOf(const ExportFormat& format, const ExportFormat::Context& context,
                                     const ExportOptions& options, const RunScope& scope);

/// Runs an exporter into a folder of unfinished files and checks what it wrote. Throws Anchor::Error, in which the folder
/// has the name of the output, and what the progress object throws.
[[nodiscard]] RunResult runExporter(const ExportFormat& format, const ExportFormat::Context& context,
                                    const ExportOptions& options, const RunScope& scope,
                                    const StagingFolder::Run& folder);

} // namespace Tidewatch
