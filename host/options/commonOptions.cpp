// SPDX-License-Identifier: Apache-2.0
#include "host/options/commonOptions.hpp"

#include "anchor/Cache.hpp"
#include "anchor/names.hpp"
#include "anchor/processLimits.hpp"
#include "host/options/addOption.hpp"
#include "library/options/OptionValues.hpp"
#include "library/output/endsIn.hpp"
#include "library/report/UsageError.hpp"
#include "library/report/Wording.hpp"
#include "workers/TbbWorkers.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

/// Known file extensions, and the command that writes such files; empty for formats that are only read.
constexpr std::pair<std::string_view, std::string_view> knownExtensions[] = {
    {".las", "las"},   {".laz", "las"},   {".pcd", "pcd"},   {".asc", "ascii"},
    {".grd", "ascii"}, {".xyz", "ascii"}, {".h5", "bundle"}, {".html", "view"},
    {".htm", "view"},  {".png", "view"},  {".tif", ""},      {".tiff", ""}};

/// The path of a file that a command writes. Throws UsageError if it is not a valid file name or has the
/// extension of another format.
std::string checkedPath(const std::string& text, const std::string& command, std::string_view writes) {
    if (text == "-")
        throw UsageError(
            "--output: standard output is not written to; name a file, or ./- for one of that name");
    const std::string name = text.substr(text.rfind('/') + 1);
    if (name.empty() || name == "." || name == "..")
        throw UsageError(fmt::format("--output: \"{}\" is not a file name", text));
    for (const auto& [extension, by] : knownExtensions) {
        if (endsIn(text, extension) && by != writes)
            throw UsageError(fmt::format("--output: {} does not write {} files{}: {}", command, extension,
                                         by.empty() ? std::string() : fmt::format(" ({} does)", by), text));
    }
    return text;
}

std::optional<OutputPattern> folderPattern(const std::string& text) {
    if (text == "-")
        throw UsageError(
            "--output: standard output is not written to; name a folder, or ./- for one of that name");
    for (const auto& [extension, by] : knownExtensions) {
        if (endsIn(text, extension))
            throw UsageError(
                fmt::format("--output: ascii fills a folder, and {} is the name of a file", text));
    }
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

/// A number of bytes in the largest unit that divides it.
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

void addEach(CLI::App& app, EachOutput& each) {
    const std::string group = "Many outputs";
    auto* const together = app.add_flag_callback(
        "--together", [] {}, "put all files in place at the end, or none (default)");
    together->group(group);
    together->excludes(
        app.add_flag("--each", each.isPlaced, "put each output in place as soon as it is written")
            ->group(group));
    together->excludes(
        app.add_flag("--keep-going", each.keepsGoing, "go on with the others where one fails; implies --each")
            ->group(group));
    together->excludes(
        app.add_flag("--skip-existing", each.skipsExisting,
                     "leave outputs that are there, so that an interrupted run goes on; implies --each")
            ->group(group));
    together->excludes(addValue(app, "--part", {"K/N", "K/N, such as 2/8"}, parsePart, each.part,
                                "write only every Nth output, from the Kth: for N processes; implies --each")
                           ->group(group));
}

/// The options of all exports except those of the output.
void addExport(CLI::App& app, ExportRequest& request, ExportOptions& options) {
    app.add_flag("--last-wins", options.lastWins,
                 "let grids of one file name overwrite each other, as the exporters do")
        ->group("Output");
    addEach(app, options.each);
    app.add_flag("--dry-run", request.dryRun,
                 "write nothing; say what would be written, lost, and in the way")
        ->group("Output");
    addLosses(app, options.losses);
    addInputs(app, request.inputs);
    addPoints(app, request.inputs);
    addTiles(app, request.inputs);
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
        app, "--time", {"MIN:MAX", "a time, or MIN:MAX"}, parseTimeRange,
        [&](const auto& range) { filters.times.push_back(range); },
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
    app.add_option(
           "INPUT", inputs.files,
           "bundle files (.h5), LAS or LAZ files, rasters; @LIST names a file with their names, a line each, "
           "and - stands for such a list on standard input")
        ->required();
    addValue(
        app, "--slice-time", {"T[,T...]", "a number, or as many as there are inputs"},
        [](std::string_view text) { return parseList(text, finiteNumber); }, inputs.sliceTimes,
        fmt::format(
            "time of inputs that state none (default {}); one for all, or one for each in their order",
            shortestText(ConvLib::ReadOptions().SliceTime)))
        ->group(group);
    addValue(app, "--fragment-points", {"N", "a number from 1"}, positiveCount, inputs.fragmentPoints,
             fmt::format("cut LAS and LAZ points into pieces of N (default {})", inputs.fragmentPoints))
        ->group(group);
    addReading(app, inputs);
    addJobs(app, inputs);
    addValue(app, "--crs", "SYSTEM", anyText, inputs.referenceSystem,
             "coordinate reference system of all grids: EPSG:25832+5783, a file of well-known text, or none; "
             "nothing is transformed")
        ->group(group);
}

void addReading(CLI::App& app, InputOptions& inputs) {
    const std::string group = "Inputs";
    addValue(
        app, "--memory-limit", {"SIZE", "bytes, such as 512M or 4G"}, parseByteSize, inputs.memoryLimit,
        fmt::format(
            "memory for arrays, such as 512M or 4G (default {} for those that can be read again, and three "
            "quarters of the machine's for one that cannot be read in parts)",
            sizeText(Anchor::Cache::defaultLimit)))
        ->group(group);
    addValue(app, "--sandbox", {"WHEN", "auto or require"}, parseSandboxWish, inputs.requiresSandbox,
             "auto (if the system supports it), or require: do not read bundle files and rasters without it")
        ->group(group);
}

void addJobs(CLI::App& app, InputOptions& inputs) {
    inputs.workers = makeWorkers(Anchor::processCores());
    addRepeatable(
        app, "-j,--jobs", {"N", "a number from 1 to 1024"}, parseJobs,
        [&](unsigned count) { inputs.workers = makeWorkers(count); },
        "processors to use (default all that this process may use)")
        ->expected(1)
        ->group("Inputs");
}

void addPoints(CLI::App& app, InputOptions& inputs) {
    const std::string group = "Points";
    PointChoice& points = inputs.points;
    addValue(app, "--class", {"N[,N...]", "numbers from 0 to 255"}, parseClasses, points.classes,
             "points of these classes, such as 2,9")
        ->group(group);
    addValue(app, "--returns", {"WHICH[,...]", "first, last, only or numbers from 1 to 15"}, parseReturns,
             points.returns, "first, last or only returns, or those of these numbers")
        ->group(group);
    addValue(
        app, "--box", {"XMIN,YMIN,XMAX,YMAX[,ZMIN,ZMAX]", "XMIN,YMIN,XMAX,YMAX or six numbers"}, parseBox,
        points.box,
        "points inside, in units of the coordinates; those on an upper face are outside. Of rasters, rows and "
        "columns")
        ->group(group);
    // By pointer: given a name, the parser ends the process when memory runs out.
    auto* const cellsAsPoints =
        app.add_flag_function(
               "--cells-as-points",
               [&](std::int64_t) {
                   inputs.cellsAsPoints.emplace(inputs.cellsAsPoints.value_or(CellOptions()));
               },
               "cell centres of rasters that have a value become points, and bands their fields")
            ->group(group);
    addRepeatable(
        app, "--z-band", {"N|FIELD", "a number or the name of a field"}, anyText,
        [&](const std::string& field) { inputs.cellsAsPoints.emplace().heights = field; },
        "the band, or field, of their heights (default 1)")
        ->expected(1)
        ->needs(cellsAsPoints)
        ->group(group);
    auto* const merge =
        app.add_flag_function(
               "--merge", [&](std::int64_t) { inputs.merge.emplace(inputs.merge.value_or(MergeOptions())); },
               "the inputs become one grid per time, their points in the order of the inputs")
            ->group(group);
    addRepeatable(
        app, "--grid-name", "NAME", parseGridName,
        [&](const std::string& name) { inputs.merge.emplace().gridName = name; },
        fmt::format("its name (default {})", MergeOptions().gridName))
        ->expected(1)
        ->needs(merge)
        ->group(group);
}

void addTiles(CLI::App& app, InputOptions& inputs) {
    const std::string group = "Points";
    // Both may be given in any order.
    const auto layout = std::make_shared<std::pair<double, std::array<double, 2>>>();
    const auto set = [&inputs, layout] {
        if (layout->first != 0)
            inputs.tiles.emplace(TileOptions{TileLayout(layout->first, layout->second)});
    };
    auto* const size =
        addRepeatable(
            app, "--tile-size", {"SIZE", "a number above 0"}, positiveNumber,
            [set, layout](double edge) {
                layout->first = edge;
                set();
            },
            "cut points into squares of this size, in units of the coordinates; each becomes a "
            "fragment, or with {tile} in OUTPUT a file")
            ->expected(1)
            ->group(group);
    addRepeatable(
        app, "--tile-origin", {"X,Y", "two numbers"}, parsePair,
        [set, layout](const std::array<double, 2>& origin) {
            layout->second = origin;
            set();
        },
        "a corner of a square (default 0,0)")
        ->expected(1)
        ->needs(size)
        ->group(group);
}

void addReport(CLI::App& app, ReportOptions& report, const std::string& jsonHelp) {
    const std::string group = "Messages";
    addValue(app, "--progress", {"WHEN", "auto, always or never"}, parseProgressMode, report.progress,
             "auto (on a terminal), always or never")
        ->group(group);
    app.add_flag("-q,--quiet", report.quiet, "errors only")->group(group);
    app.add_flag("--verbose", report.verbose, "also what the exporters themselves say")->group(group);
    app.add_flag("--json", report.json, jsonHelp)->group(group);
}

void addBundleFile(CLI::App& app, std::string& output, bool& overwrite) {
    addOutput(
        app, "FILE.h5",
        [name = app.get_name()](const std::string& text) {
            return std::optional(checkedPath(text, name, "bundle"));
        },
        output, overwrite, "the bundle file to write");
}

void addOptionalOutput(CLI::App& app, std::optional<std::string>& output, bool& overwrite) {
    const std::string group = "Output";
    addValue(
        app, "-o,--output", "FILE",
        [name = app.get_name()](const std::string& text) {
            return std::optional(checkedPath(text, name, name));
        },
        output, "a page (.html) or a picture (.png); without it a page in the cache, which is opened")
        ->group(group);
    app.add_flag("--overwrite", overwrite, "replace files that exist already")->group(group);
}

void addLosses(CLI::App& app, LossPolicy& policy) {
    const std::string group = "Output";
    app.add_flag("--strict", policy.strict, "treat losses as errors, and write nothing")->group(group);
    addRepeatable(
        app, "--accept", {"KIND[,...]", "kinds of losses: " + joined({lossKinds.begin(), lossKinds.end()})},
        [](std::string_view text) { return parseList(text, parseLossKind); },
        [&](const auto& kinds) { policy.accepted.insert(kinds.begin(), kinds.end()); },
        "losses of these kinds are fine: neither shown nor refused")
        ->group(group);
}

void addFileExport(CLI::App& app, ExportRequest& request, ExportOptions& options) {
    addOutput(
        app, "OUTPUT",
        [name = app.get_name()](const std::string& text) {
            return std::optional(OutputPattern(checkedPath(text, name, name)));
        },
        options.output, options.overwrite,
        "the file to write; {grid}, {time} and {tile} in it give each grid, time or square its own file");
    addExport(app, request, options);
}

void addFolderExport(CLI::App& app, ExportRequest& request, ExportOptions& options) {
    addOutput(
        app, "DIRECTORY", folderPattern, options.output, options.overwrite,
        "the folder to fill; {grid}, {time} and {tile} in it give each grid, time or square its own folder");
    addExport(app, request, options);
}

void finish(CLI::App& command, const std::string& footer) {
    command.set_help_flag("-h,--help", "this text")->group("Messages");
    command.footer(footer);
}

} // namespace Tidewatch
