// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host/report/Report.hpp"
#include "library/ascii/exportAscii.hpp"
#include "library/input/Inputs.hpp"
#include "library/las/exportLas.hpp"
#include "library/pcd/exportPcd.hpp"

#include <memory>
#include <string>

namespace Tidewatch {

/// Options common to all export commands, besides those of the export itself.
struct ExportRequest {
    InputOptions inputs;
    bool printParameters = false;
    /// Says what would be written, and writes nothing.
    bool dryRun = false;
    ReportOptions report;
};

/// Runs an export, reports what it did, and puts its files in place. Returns the exit status: 0, or 1 if the exporter
/// recorded an error, nothing was written, a loss was refused, an output that stands by itself failed, or something
/// would stand in the way. Throws Anchor::Error if an input cannot be read or a file cannot be written, and Interrupted;
/// then nothing has been put in place unless the message says otherwise.
[[nodiscard]] int runExport(std::string command, const ExportRequest& request, ExportOptions options,
                            std::unique_ptr<const ExportFormat> format);

/// `tidewatch las`
struct LasRequest : ExportRequest {
    LasOptions options;
    /// Use the exporter's defaults; otherwise grids are carried and files conform.
    bool plain = false;
    [[nodiscard]] int run() const;
};

/// `tidewatch pcd`
struct PcdRequest : ExportRequest {
    PcdOptions options;
    [[nodiscard]] int run() const { return runExport("pcd", *this, options, pcdFormat(options)); }
};

/// `tidewatch ascii`
struct AsciiRequest : ExportRequest {
    AsciiOptions options;
    [[nodiscard]] int run() const { return runExport("ascii", *this, options, asciiFormat(options)); }
};

} // namespace Tidewatch
