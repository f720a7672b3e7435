// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host/export/ExportCommand.hpp"
#include "host/input/Filters.hpp"
#include "host/input/Inputs.hpp"
#include "host/output/OutputPattern.hpp"
#include "host/report/Report.hpp"

namespace Tidewatch {

/// What all export commands have in common.
struct ExportOptions {
    InputOptions inputs;
    Filters filters;
    OutputPattern output;
    bool overwrite = false;
    /// Losses are errors, and nothing is put in place.
    bool strict = false;
    bool printParameters = false;
    ReportOptions report;
};

/// The course of an export: reads the structure of the inputs, runs the exporter as often as the output
/// pattern asks for, each time into a folder of its own, checks what it wrote, puts all files in place, and
/// says what was lost.
///
/// Gives the exit status: 0, or 1 when the exporter recorded an error, nothing was written or a loss was
/// refused. Throws Anchor::Error when an input cannot be read or a file cannot be written, and Interrupted;
/// then nothing has been put in place unless the message says otherwise.
[[nodiscard]] int runExport(const ExportOptions& options, const ExportCommand& command);

} // namespace Tidewatch
