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

/// What exports to all formats have in common.
struct ExportOptions {
    Filters filters;
    /// Where the files go; "{grid}" and "{time}" in it give each grid or time its own output.
    OutputPattern output;
    /// Whether files that exist already are replaced.
    bool overwrite = false;
    /// Whether a loss keeps everything from being put in place.
    bool strict = false;
    /// Receives the settings of each exporter as text before it runs; may be empty.
    std::function<void(const std::string& settings)> showSettings = {};
};

/// The course of an export: runs the exporter as often as the output pattern asks for, each time into a folder of
/// unfinished files, checks what it wrote, and puts all files in place.
///
/// write() first, then, when the report is to the host's liking, place(). An object that goes away without place()
/// leaves nothing behind. The functions exportLas(), exportPcd() and exportAscii() do all of it in one call.
class TIDEWATCH_API Export {
public:
    /// What is given outlives the export.
    Export(const Inputs& inputs, ExportOptions options, std::unique_ptr<const ExportFormat> format,
           Anchor::StrongPtr<Progress> progress = {});
    ~Export();
    Export(const Export&) = delete;
    Export& operator=(const Export&) = delete;

    /// Runs the exporters and checks what they wrote; nothing is put in place. Throws Anchor::Error when an input
    /// cannot be read or a file cannot be written, and what the progress object throws. To be called once.
    const ExportReport& write();

    /// Puts the files in place. Throws Anchor::Error; then nothing has been put in place unless the message says
    /// otherwise. Does nothing after a run that was not completed.
    const ExportReport& place();

    /// Calls place() unless the report forbids it: an exporter that did not finish, no files, or, where
    /// the options are strict, a loss. The report tells.
    const ExportReport& placeUnlessRefused();

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace Tidewatch
