// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/export/ExportFormat.hpp"
#include "library/export/ExportReport.hpp"
#include "library/input/Filters.hpp"
#include "library/input/Inputs.hpp"
#include "library/output/OutputPattern.hpp"

#include <functional>
#include <memory>
#include <string>

namespace Tidewatch {

/// Options that exports to all formats have in common.
struct ExportOptions {
    Filters filters;
    /// Where the files go; "{grid}" and "{time}" in it give each grid or time its own output.
    OutputPattern output;
    /// Whether existing files are replaced.
    bool overwrite = false;
    /// Whether grids may overwrite each other's files, as exporters let them; otherwise that is wrong usage.
    bool lastWins = false;
    LossPolicy losses = {};
    /// Receives the settings of each exporter as text before it runs; may be empty.
    std::function<void(const std::string& settings)> showSettings = {};
};

/// Before inputs for an export are made: tells them what its filters select (selectInputs()), and whether the squares into
/// which they cut points are files. Throws UsageError for {tile} in OUTPUT without squares.
TIDEWATCH_API void prepareInputs(InputOptions& inputs, ExportOptions& options, const ExportFormat& format);

/// An export: runs the exporter as often as the output pattern requires, each time into a folder of unfinished files,
/// checks what it wrote, and puts all files in place.
///
/// Call write() first, then, if the host accepts the report, place(). An object that is destroyed without place()
/// leaves no files behind. The functions exportLas(), exportPcd() and exportAscii() do all of this in one call.
class TIDEWATCH_API Export {
public:
    /// The inputs must outlive the export.
    Export(const Inputs& inputs, ExportOptions options, std::unique_ptr<const ExportFormat> format,
           Anchor::StrongPtr<Progress> progress = {});
    ~Export();
    Export(const Export&) = delete;
    Export& operator=(const Export&) = delete;

    /// Runs the exporters and checks what they wrote; nothing is put in place. Throws Anchor::Error if an input cannot
    /// be read or a file cannot be written, UsageError where grids would overwrite each other, and what the progress
    /// object throws. To be called once.
    const ExportReport& write();

    /// Puts the files in place. Throws Anchor::Error; then nothing has been put in place unless the message says
    /// otherwise. Does nothing after a run that was not completed.
    const ExportReport& place();

    /// Calls place() unless an exporter did not finish, there are no files, or the options refuse the losses. The report shows which.
    const ExportReport& placeUnlessRefused();

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace Tidewatch
