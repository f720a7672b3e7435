// SPDX-License-Identifier: Apache-2.0
#include "host/CommandLine.hpp"

#include "anchor/Error.hpp"
#include "host/options/HelpFormat.hpp"
#include "host/options/addOption.hpp"
#include "host/options/commonOptions.hpp"
#include "host/report/StandardOutput.hpp"
#include "library/input/fileLists.hpp"
#include "library/options/OptionValues.hpp"
#include "library/report/Json.hpp"
#include "library/report/UsageError.hpp"
#include "library/report/Wording.hpp"
#include "pcd/ExportPointCloudToPCD.hpp"
#include "readers/registerReaders.hpp"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace Tidewatch {

namespace {

CLI::App* addLas(CLI::App& program, LasRequest& request) {
    CLI::App& app = *program.add_subcommand("las", "write LAS or LAZ files: points with all attributes");
    const std::string group = "LAS";
    addValue(app, "--las-version", {"VERSION", "1.2, 1.3 or 1.4"}, parseLasVersion, request.options.version,
             fmt::format("1.2, 1.3 or 1.4 (default 1.{})", request.options.version))
        ->group(group);
    app.add_flag("--tiles", request.options.tiles, "one file per fragment; its name follows OUTPUT's")
        ->group(group);
    app.add_flag("--uncompressed", request.options.uncompressed,
                 "LAS instead of LAZ; implied by an OUTPUT in .las")
        ->group(group);
    addValue(app, "--day", {"N", "a whole number"}, parseNumber<int>, request.options.day,
             fmt::format("day of the year of the header (default {})", request.options.day))
        ->group(group);
    addValue(app, "--year", {"N", "a whole number"}, parseNumber<int>, request.options.year,
             fmt::format("year of the header (default {})", request.options.year))
        ->group(group);
    addValue(app, "--point-source-id", {"N", "a number from 0 to 65535"}, parsePointSourceID,
             request.options.pointSourceID,
             "0 to 65535: assigned to every point; 0 keeps the points' own (default 0)")
        ->group(group);
    addRepeatable(
        app, "--rename", "FIELD=ATTRIBUTE", parseRenaming,
        [&](const auto& entry) { request.options.renames[entry.first] = entry.second; },
        "store a field as a LAS attribute (repeatable)")
        ->group(group);
    app.add_flag(
           "--plain", request.plain,
           "what the exporter writes by itself: no flags, extra bytes, records or reference system, and "
           "its older habits")
        ->group(group);
    addValue(app, "--scale", "X[,Y,Z]", parseSteps, request.options.step,
             "steps of coordinates (default the input's, else 0.00025)")
        ->group(group);
    addValue(app, "--offset", "X[,Y,Z]", parseTriple, request.options.offset,
             "offset of coordinates (default the input's, else the centre)")
        ->group(group);
    app.add_flag("--verify", request.options.verify,
                 "decode every file and compare it before it is put in place")
        ->group(group);
    addFileExport(app, request, request.options);
    finish(app, "Attributes: " + joined(attributeNames()) +
                    ".\n\n"
                    "Examples:\n"
                    "  tidewatch las tides.h5 -o 'out/{grid}-{time}.laz' --verify\n"
                    "  tidewatch las survey.laz -o old.las --las-version 1.2 --rename Echo=UserData");
    return &app;
}

CLI::App* addPcd(CLI::App& program, PcdRequest& request) {
    CLI::App& app =
        *program.add_subcommand("pcd", "write a PCD file: points, thinned to one per cell, with intensities");
    const std::string group = "PCD";
    addValue(app, "--ref-level", {"N", "a whole number"}, parseNumber<int>, request.options.refinementLevel,
             fmt::format("refinement level; -1 is the highest (default {})", request.options.refinementLevel))
        ->group(group);
    addValue(app, "--precision", {"N", "a whole number"}, parseNumber<int>, request.options.precision,
             fmt::format("significant digits (default {})", request.options.precision))
        ->group(group);
    auto* const cellSize =
        addValue(app, "--cell-size", {"X", "a number greater than 0"}, positiveNumber,
                 request.options.cellSize,
                 fmt::format("edge length of a cell in units of the coordinates, one point of which is kept "
                             "(default {})",
                             shortestText(ExportLib::ExportPointCloudToPCD().CellSize)))
            ->group(group);
    app.add_flag_callback(
           "--no-thinning", [&] { request.options.thinning = false; }, "keep all points, in their order")
        ->excludes(cellSize)
        ->group(group);
    app.add_flag("--exact-counts", request.options.exactCounts,
                 "WIDTH and POINTS count the lines that follow")
        ->group(group);
    addFileExport(app, request, request.options);
    finish(app, "Examples:\n"
                "  tidewatch pcd survey.laz -o survey.pcd --cell-size 0.5\n"
                "  tidewatch pcd tides.h5 -o 'out/{grid}-{time}.pcd' --time 0:6 --grid 'coast*'");
    return &app;
}

CLI::App* addAscii(CLI::App& program, AsciiRequest& request) {
    CLI::App& app = *program.add_subcommand(
        "ascii", "write text: XYZ files and value lists (.asc), ESRI ASCII grids (.grd)");
    const std::string group = "ASCII";
    AsciiSettings& settings = request.options.settings;
    addValue(
        app, "--ref-level", {"N", "a whole number"}, parseNumber<int>, settings.refinementLevel,
        fmt::format("refinement level; -1 is the highest, -2 all (default {})", settings.refinementLevel))
        ->group(group);
    addValue(app, "--precision", {"N", "a number from 0"}, parseNumber<unsigned int>, settings.precision,
             fmt::format("decimals of the values of grids; 0 means six (default {})", settings.precision))
        ->group(group);
    app.add_flag("--append", settings.append, "one file per field; existing files are appended to")
        ->group(group);
    app.add_flag("--tile-suffix", settings.tileSuffix, "the lower left corner in the names of grids")
        ->group(group);
    addValue(app, "--filter-field", "NAME", anyText, settings.filterField,
             fmt::format("the field of cell types (default {})", settings.filterField))
        ->group(group);
    addValue(app, "--cell-types", "A:B,C,...", parseRanges, request.options.cellTypes,
             "write the values of cells of these types; others become no-data cells (default all)")
        ->group(group);
    addFolderExport(app, request, request.options);
    finish(app, "Examples:\n"
                "  tidewatch ascii dem.tif -o grids --cell-types 1\n"
                "  tidewatch ascii tides.h5 -o 'out/{grid}-{time}' --ref-level -2 --precision 3");
    return &app;
}

CLI::App* addInfo(CLI::App& program, InfoRequest& request) {
    CLI::App& app = *program.add_subcommand("info", "show what the inputs are, and what they contain");
    const std::string group = "Contents";
    app.add_flag("--fields", request.fields, "show grids, skeletons, fields and fragments")->group(group);
    app.add_flag("--stats", request.statistics,
                 "read everything, and show ranges of fields, classes and returns")
        ->group(group);
    addInputs(app, request.inputs);
    app.add_flag("--bounds", request.bounds, "show bounding boxes, for which positions are read")
        ->group("Inputs");
    addReport(app, request.report, "the output as JSON");
    finish(app, "Example:\n  tidewatch info survey.laz tides.h5");
    return &app;
}

CLI::App* addCheck(CLI::App& program, CheckRequest& request) {
    CLI::App& app = *program.add_subcommand("check", "check whether files conform to their formats");
    app.add_option("FILE", request.inputs.files, "LAS, LAZ, PCD, ESRI ASCII grid or bundle files, rasters")
        ->required();
    addReading(app, request.inputs);
    addReport(app, request.report, "the findings as JSON");
    finish(app, "Exit status: 0 if no file has a fault, 1 if some file has.\n\n"
                "Example:\n  tidewatch check tiles/*.laz");
    return &app;
}

CLI::App* addBundle(CLI::App& program, BundleRequest& request) {
    CLI::App& app = *program.add_subcommand("bundle", "write the inputs as one bundle file");
    addBundleFile(app, request.output, request.overwrite);
    addLosses(app, request.losses);
    addInputs(app, request.inputs);
    addPoints(app, request.inputs);
    addTiles(app, request.inputs);
    addReport(app, request.report);
    finish(app, "Example:\n  tidewatch bundle morning.laz --slice-time 6 -o morning.h5");
    return &app;
}

CLI::App* addView(CLI::App& program, ViewRequest& request) {
    CLI::App& app = *program.add_subcommand("view", "show the inputs: a page for any browser, or a picture");
    addOptionalOutput(app, request.output, request.overwrite);
    addValue(app, "--points", {"N", "a number from 1"}, positiveCount, request.points,
             fmt::format("max points of a page (default {}, or fewer so that they fit into {} MB)",
                         ViewPageOptions::defaultPoints, ViewPageOptions::usualBytes / 1'000'000))
        ->group("Page");
    const ViewPictureOptions picture;
    addValue(app, "--size", "WIDTHxHEIGHT", parsePictureSize, request.size,
             fmt::format("pixels of a picture (default {}x{})", picture.size.width, picture.size.height))
        ->group("Picture");
    addValue(app, "--color", "BY", parsePictureColors, request.color,
             "height, class, intensity, return or rgb (default class where there are several, else height)")
        ->group("Picture");
    addInputs(app, request.inputs);
    addPoints(app, request.inputs);
    addFilters(app, request.filters);
    addReport(app, request.report);
    finish(app, "Examples:\n"
                "  tidewatch view tides.h5\n"
                "  tidewatch view survey.laz -o survey.html --points 3000000\n"
                "  tidewatch view survey.laz -o survey.png --color height");
    return &app;
}

CLI::App* addSample(CLI::App& program, SampleRequest& request) {
    CLI::App& app = *program.add_subcommand("sample", "write a synthetic coastal survey as a bundle file");
    const std::string group = "Survey";
    addValue(app, "--points", {"N", "a number from 1"}, positiveCount, request.survey.points,
             fmt::format("points of each time slice (default {})", request.survey.points))
        ->group(group);
    addValue(app, "--seed", {"S", "a number from 0"}, parseNumber<std::uint64_t>, request.survey.seed,
             fmt::format("the same seed gives the same survey (default {})", request.survey.seed))
        ->group(group);
    addBundleFile(app, request.output, request.overwrite);
    addReport(app, request.report);
    finish(app, "Example:\n  tidewatch sample --points 100000 -o sample.h5");
    return &app;
}

/// A command of the program: its options, and the request that they fill.
struct Command {
    std::unique_ptr<Request> request;
    CLI::App* app;
};

template <class R, CLI::App* (*add)(CLI::App&, R&)>
Command makeCommand(CLI::App& program) {
    auto request = std::make_unique<Request>(R());
    CLI::App* const app = add(program, std::get<R>(*request));
    return {std::move(request), app};
}

/// The commands in the order of the help; a new one is a row here and an alternative of Request.
constexpr Command (*commandTable[])(CLI::App&) = {
    makeCommand<LasRequest, addLas>,     makeCommand<PcdRequest, addPcd>,
    makeCommand<AsciiRequest, addAscii>, makeCommand<InfoRequest, addInfo>,
    makeCommand<CheckRequest, addCheck>, makeCommand<BundleRequest, addBundle>,
    makeCommand<ViewRequest, addView>,   makeCommand<SampleRequest, addSample>};

constexpr std::string_view versionAsJson[] = {"--version", "--json"};

/// The version, and the state of the sandbox of the process that reads bundle files and rasters.
std::string versionJson() {
    Json sandbox;
    try {
        const Sandbox state = probeSandbox();
        sandbox = {{"seccomp", state.seccomp}, {"landlock", state.landlock}, {"limits", state.limits}};
    } catch (const Anchor::Error& error) {
        sandbox = {{"error", error.what()}};
    }
    return jsonText(Json{{"version", TIDEWATCH_VERSION}, {"sandbox", sandbox}});
}

/// The number of insertions, deletions, replacements and swaps of neighbours that turn one word into the
/// other.
std::size_t editDistance(std::string_view a, std::string_view b) {
    std::vector<std::vector<std::size_t>> distance(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                distance[i][j] = i + j;
                continue;
            }
            distance[i][j] = std::min({distance[i - 1][j] + 1, distance[i][j - 1] + 1,
                                       distance[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0U : 1U)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                distance[i][j] = std::min(distance[i][j], distance[i - 2][j - 2] + 1);
        }
    }
    return distance[a.size()][b.size()];
}

/// The name most similar to a mistyped one; empty if none is similar.
std::string nearestName(const std::string& typed, const std::vector<std::string>& names) {
    constexpr std::size_t slips = 2;
    const auto nearest = std::min_element(names.begin(), names.end(), [&](const auto& a, const auto& b) {
        return editDistance(typed, a) < editDistance(typed, b);
    });
    return nearest != names.end() && editDistance(typed, *nearest) <= slips ? *nearest : std::string();
}

/// Rephrases errors of the parser.
std::string unknownOption(const std::string& argument, const CLI::App& command) {
    const std::string typed = argument.substr(0, argument.find('='));
    std::vector<std::string> names;
    for (const CLI::Option* const option : command.get_options()) {
        for (const std::string& name : option->get_lnames())
            names.push_back("--" + name);
    }
    const std::string nearest = typed.starts_with("--") ? nearestName(typed, names) : std::string();
    return fmt::format("there is no option {}{}", typed,
                       nearest.empty() ? nearest : "; did you mean " + nearest + "?");
}

std::string described(const CLI::ParseError& error, const CLI::App& command) {
    const std::string text = error.what();
    if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) {
        // "The following argument was not expected: --x", or "arguments were", between blanks.
        const std::size_t dash = text.find(" -");
        if (dash != std::string::npos) {
            const std::size_t end = text.find(' ', dash + 1);
            return unknownOption(text.substr(dash + 1, end == std::string::npos ? end : end - dash - 1),
                                 command);
        }
    }
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr &&
        text.find("At Most") != std::string::npos)
        return text.substr(0, text.find(':')) + " is given twice";
    return text;
}

void checkCommandName(const CLI::App& program, const std::string& name) {
    std::vector<std::string> names;
    for (const CLI::App* command : program.get_subcommands({}))
        names.push_back(command->get_name());
    if (std::find(names.begin(), names.end(), name) != names.end())
        return;
    const std::string nearest = nearestName(name, names);
    throw UsageError(nearest.empty()
                         ? fmt::format("there is no command \"{}\"; there are {}", name, joined(names))
                         : fmt::format("there is no command \"{}\"; did you mean {}?", name, nearest));
}

} // namespace

int TextRequest::run() const {
    writeStandardOutput(text);
    return 0;
}

void readLists(Request& request) {
    std::visit(
        [](auto& command) {
            if constexpr (requires { command.inputs.files; })
                command.inputs.files = namedInputs(command.inputs.files);
        },
        request);
}

Request parseCommandLine(std::span<const char* const> arguments) {
    CLI::App program("Exports point clouds of surveys, and shows and bundles them.", "tidewatch");
    program.formatter(std::make_shared<HelpFormat>());
    program.set_help_flag("-h,--help", "this text");
    program.set_version_flag("-V,--version", "tidewatch " TIDEWATCH_VERSION,
                             "the version; with --json also the state of the sandbox for reading");
    program.require_subcommand(1);
    program.footer("'tidewatch COMMAND --help' lists the options of a command.\n\n"
                   "Exit status: 0 done; 1 failed; 2 wrong usage; 130 interrupted.");

    std::vector<Command> commands;
    for (const auto make : commandTable)
        commands.push_back(make(program));

    if (arguments.empty())
        throw UsageError("a command is missing; 'tidewatch --help' lists them");
    std::vector<std::string> words(arguments.begin(), arguments.end());
    if (std::is_permutation(words.begin(), words.end(), std::begin(versionAsJson), std::end(versionAsJson)))
        return TextRequest{versionJson()};
    if (!words.front().starts_with('-'))
        checkCommandName(program, words.front());
    for (const std::string& word : words) {
        if (word == "--")
            break;
        // The parser would use the next argument as the value.
        if (word.starts_with("--") && word.ends_with('='))
            throw UsageError(word + " has no value");
    }
    // The parser expects them in reverse order.
    std::reverse(words.begin(), words.end());
    try {
        program.parse(std::move(words));
    } catch (const CLI::CallForHelp&) {
        return TextRequest{program.help()};
    } catch (const CLI::CallForVersion& version) {
        return TextRequest{version.what() + std::string("\n")};
    } catch (const CLI::ParseError& error) {
        const auto asked = program.get_subcommands();
        throw UsageError(fmt::format("{}\nTry 'tidewatch {}--help'.",
                                     described(error, asked.empty() ? program : *asked.front()),
                                     asked.empty() ? "" : asked.front()->get_name() + " "));
    }
    const auto asked = std::find_if(commands.begin(), commands.end(),
                                    [](const Command& command) { return command.app->parsed(); });
    return std::move(*asked->request);
}

} // namespace Tidewatch
