// SPDX-License-Identifier: Apache-2.0
#include "host/options/commonOptions.hpp"

#include "anchor/Cache.hpp"
#include "host/options/OptionValues.hpp"
#include "host/options/addOption.hpp"
#include "library/report/UsageError.hpp"
#include "library/report/Wording.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

std::optional<std::string> filePath(const std::string& text) {
    const std::string name = text.substr(text.rfind('/') + 1);
    if (name.empty() || name == "." || name == "..")
        throw UsageError(fmt::format("--output: \"{}\" is not a file name", text));
    return text;
}

std::optional<OutputPattern> filePattern(const std::string& text) {
    return OutputPattern(*filePath(text));
}

std::optional<OutputPattern> folderPattern(const std::string& text) {
    return OutputPattern(text);
}

std::optional<ProgressMode> parseProgressMode(const std::string& text) {
    if (text == "auto")
        return ProgressMode::Automatic;
    if (text == "always")
        return ProgressMode::Always;
    if (text == "never")
        return ProgressMode::Never;
    return std::nullopt;
}

std::optional<bool> sandboxWish(const std::string& text) {
    if (text == "auto")
        return false;
    if (text == "require")
        return true;
    return std::nullopt;
}

/// Bytes in the largest unit that divides them.
std::string sizeText(std::uint64_t bytes) {
    constexpr std::string_view suffixes = "KMGT";
    std::size_t place = 0;
    while (bytes != 0 && bytes % 1024 == 0 && place < suffixes.size()) {
        bytes /= 1024;
        ++place;
    }
    return std::to_string(bytes) + std::string(place > 0 ? suffixes.substr(place - 1, 1) : "");
}

template <class Parse, class Target>
void addOutput(CLI::App& app, const std::string& placeholder, Parse parse, Target& output, bool& overwrite,
               const std::string& help) {
    const std::string group = "Output";
    addValue(app, "-o,--output", placeholder, parse, output, help)->required()->group(group);
    app.add_flag("--overwrite", overwrite, "replace existing files")->group(group);
}

/// The options of all exports except those of the output.
void addExport(CLI::App& app, ExportRequest& request, ExportOptions& options) {
    addStrict(app, options.strict);
    addInputs(app, request.inputs);
    addFilters(app, options.filters);
    addReport(app, request.report);
    app.add_flag("--print-parameters", request.printParameters,
                 "show all settings of the exporter before it runs")
        ->group("Messages");
}

} // namespace

void addFilters(CLI::App& app, Filters& filters) {
    const std::string group = "Selection (each may be given several times)";
    addRepeatable(
        app, "--time", "MIN:MAX", parseTimeRange, [&](const auto& range) { filters.times.push_back(range); },
        "select slices of these times, both ends included, or of one time")
        ->group(group);
    addRepeatable(
        app, "--grid", "GLOB", anyText, [&](const auto& glob) { filters.grids.push_back(glob); },
        "select grids with these names; *, ? and [...] as in the shell")
        ->group(group);
    addRepeatable(
        app, "--field", "GLOB", anyText, [&](const auto& glob) { filters.fields.push_back(glob); },
        "select fields with these names")
        ->group(group);
}

void addInputs(CLI::App& app, InputOptions& inputs) {
    const std::string group = "Inputs";
    app.add_option("INPUT", inputs.files, "bundle files (.h5), LAS or LAZ files, rasters")->required();
    addValue(app, "--slice-time", "TIME", finiteNumber, inputs.sliceTime,
             fmt::format("time of inputs that state none (default {})", shortestText(inputs.sliceTime)))
        ->group(group);
    addValue(app, "--fragment-points", "N", positiveCount, inputs.fragmentPoints,
             fmt::format("cut LAS and LAZ points into pieces of N (default {})", inputs.fragmentPoints))
        ->group(group);
    addReading(app, inputs);
    addValue(
        app, "--crs", "SYSTEM", anyText, inputs.referenceSystem,
        "coordinate reference system of all grids: EPSG:25832+5783,\na file of well-known text, or none; "
        "nothing is transformed")
        ->group(group);
}

void addReading(CLI::App& app, InputOptions& inputs) {
    const std::string group = "Inputs";
    addValue(app, "--memory-limit", "SIZE", parseByteSize, inputs.memoryLimit,
             fmt::format(
                 "memory for arrays, such as 512M or 4G (default {} for those that can be read again, three "
                 "quarters of the memory for one that cannot be read in parts)",
                 sizeText(Anchor::Cache::defaultLimit)))
        ->group(group);
    addValue(app, "--sandbox", "WHEN", sandboxWish, inputs.requiresSandbox,
             "auto (as far as the system has it), or require: no bundle\nfile or raster is read without it")
        ->group(group);
}

void addReport(CLI::App& app, ReportOptions& report, const std::string& jsonHelp) {
    const std::string group = "Messages";
    addValue(app, "--progress", "WHEN", parseProgressMode, report.progress,
             "auto (on a terminal), always or never")
        ->group(group);
    app.add_flag("-q,--quiet", report.quiet, "errors only")->group(group);
    app.add_flag("--json", report.json, jsonHelp)->group(group);
}

void addBundleFile(CLI::App& app, std::string& output, bool& overwrite) {
    addOutput(app, "FILE.h5", filePath, output, overwrite, "the bundle file to write");
}

void addOptionalOutput(CLI::App& app, std::optional<std::string>& output, bool& overwrite) {
    const std::string group = "Output";
    addValue(app, "-o,--output", "FILE", filePath, output,
             "a page (.html) or a picture (.png); without it a page in\nthe cache, which is opened")
        ->group(group);
    app.add_flag("--overwrite", overwrite, "replace files that exist already")->group(group);
}

void addStrict(CLI::App& app, bool& strict) {
    app.add_flag("--strict", strict, "treat losses as errors, and write nothing")->group("Output");
}

void addFileExport(CLI::App& app, ExportRequest& request, ExportOptions& options) {
    addOutput(app, "OUTPUT", filePattern, options.output, options.overwrite,
              "the file to write; {grid} and {time} in it\ngive each grid or time its own file");
    addExport(app, request, options);
}

void addFolderExport(CLI::App& app, ExportRequest& request, ExportOptions& options) {
    addOutput(app, "DIRECTORY", folderPattern, options.output, options.overwrite,
              "the folder to fill; {grid} and {time} in it\ngive each grid or time its own folder");
    addExport(app, request, options);
}

void finish(CLI::App& command, const std::string& footer) {
    command.set_help_flag("-h,--help", "this text")->group("Messages");
    command.footer(footer);
}

} // namespace Tidewatch
