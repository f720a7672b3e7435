// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host/export/ExportCommand.hpp"
#include "host/report/Report.hpp"
#include "library/input/Inputs.hpp"

#include <optional>
#include <string>

#include <CLI/CLI.hpp>

/// Options that several commands share. The objects that receive the values must outlive the parsing.
namespace Tidewatch {

void addInputs(CLI::App& command, InputOptions& inputs);

/// `--memory-limit` and `--sandbox`, which addInputs() adds, too.
void addReading(CLI::App& command, InputOptions& inputs);

/// `--jobs`, which addInputs() adds, too.
void addJobs(CLI::App& command, InputOptions& inputs);

/// `--time`, `--grid` and `--field`.
void addFilters(CLI::App& command, Filters& filters);

/// `--output` and `--overwrite` of a command for which they are optional.
void addOptionalOutput(CLI::App& command, std::optional<std::string>& output, bool& overwrite);

/// Options for choosing points of the inputs, and for merging them.
void addPoints(CLI::App& app, InputOptions& inputs);

/// Options for cutting points into squares.
void addTiles(CLI::App& app, InputOptions& inputs);

void addReport(CLI::App& command, ReportOptions& report, const std::string& jsonHelp = "the summary as JSON");

/// `--output` of a command that writes one bundle file, and `--overwrite`.
void addBundleFile(CLI::App& command, std::string& output, bool& overwrite);

/// `--strict` and `--accept` of a command that writes files.
void addLosses(CLI::App& command, LossPolicy& policy);

/// All options of an export into files except those of its format.
void addFileExport(CLI::App& command, ExportRequest& request, ExportOptions& options);

/// The same for an export that fills a folder.
void addFolderExport(CLI::App& command, ExportRequest& request, ExportOptions& options);

/// Completes a command: its help option comes last.
void finish(CLI::App& command, const std::string& footer);

} // namespace Tidewatch
