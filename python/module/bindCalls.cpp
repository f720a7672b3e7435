// SPDX-License-Identifier: Apache-2.0
#include "anchor/Cache.hpp"
#include "library/ascii/exportAscii.hpp"
#include "library/bundle/BundleExport.hpp"
#include "library/check/checkFile.hpp"
#include "library/info/inventoryTexts.hpp"
#include "library/las/exportLas.hpp"
#include "library/pcd/exportPcd.hpp"
#include "library/report/Losses.hpp"
#include "library/sample/SampleSurvey.hpp"
#include "library/view/ViewFile.hpp"
#include "library/view/viewPage.hpp"
#include "library/view/viewPicture.hpp"
#include "python/module/Name.hpp"
#include "python/module/Operation.hpp"
#include "python/module/bind.hpp"
#include "python/module/errors.hpp"
#include "python/module/handles.hpp"
#include "python/module/options.hpp"
#include "readers/registerReaders.hpp"

#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <utility>

#include <pybind11/stl.h>

namespace Tidewatch::Python {

namespace {

using Files = std::vector<Name>;
/// What a call reads: a bundle that is there, or a list of files.
using Source = py::object;

/// The options of a call that reads, and what it reads.
struct Reading {
    InputOptions options;
    SharedState state;

    /// Takes the arguments. Call with the lock.
    Reading(const Source& source, Given& given) {
        takePoints(given, options);
        takeJobs(given, options);
        if (py::isinstance<BundleHandle>(source)) {
            state = source.cast<const BundleHandle&>().state();
            takeReading(given, options);
            return;
        }
        takeFiles(given, options);
        for (const Name& file : source.cast<Files>())
            options.files.push_back(file.bytes);
    }

    /// Reads. Call without the lock.
    [[nodiscard]] Inputs read(const Anchor::StrongPtr<Operation>& operation) const {
        if (!state)
            return Inputs(options, Operation::reading());
        operation->check();
        if (options.memoryLimit)
            Anchor::Cache::MemCache().setLimit(*options.memoryLimit);
        return state->inputs.with(options, Operation::reading());
    }
};

/// Keeps the bundle of a call that may be there from being changed. Made and destroyed with the lock.
class MaybeInUse {
public:
    explicit MaybeInUse(const SharedState& state) {
        if (state)
            used_.emplace(state);
    }

private:
    std::optional<InUse> used_;
};

/// Readers keep only the fields that an export announced; whoever reads next may want any.
class AllFieldsAfterwards {
public:
    explicit AllFieldsAfterwards(const Inputs& inputs) : inputs_(inputs) {}
    ~AllFieldsAfterwards() { inputs_.expectAllFields(); }
    AllFieldsAfterwards(const AllFieldsAfterwards&) = delete;
    AllFieldsAfterwards& operator=(const AllFieldsAfterwards&) = delete;

private:
    const Inputs& inputs_;
};

py::list asTexts(const std::vector<std::string>& texts) {
    py::list list;
    for (const std::string& text : texts)
        list.append(textOf(text));
    return list;
}

py::list asPairs(const std::vector<Loss>& losses) {
    py::list list;
    for (const Loss& loss : losses)
        list.append(py::make_tuple(loss.kind, textOf(loss.message)));
    return list;
}

py::dict asDict(const ExportReport& report, const LossPolicy& policy,
                const std::vector<std::string>& settings = {}) {
    py::list files;
    for (const ExportReport::File& file : report.files) {
        py::dict entry;
        entry["path"] = Name{file.path};
        entry["items"] = file.items;
        entry["unit"] = file.unit;
        entry["bytes"] = file.bytes;
        entry["bytes_before"] = file.bytesBefore;
        entry["grid"] = file.grid ? py::cast(Name{*file.grid}) : py::none();
        entry["time"] = py::cast(file.time);
        files.append(entry);
    }
    py::dict result;
    result["files"] = files;
    result["losses"] = asPairs(report.losses);
    result["shown"] = asPairs(policy.shown(report.losses, "; the losses of the report are all of them"));
    result["refused"] = policy.refuses(report.losses);
    result["notes"] = asTexts(report.notes);
    result["errors"] = asTexts(report.errors);
    result["completed"] = report.completed;
    result["why_nothing"] = textOf(report.whyNothing);
    result["placed"] = report.placed;
    result["settings"] = asTexts(settings);
    result["existing"] = report.existing;
    py::list failures;
    for (const ExportReport::Failure& failure : report.failures)
        failures.append(textOf(failure.message));
    result["failures"] = failures;
    result["obstacles"] = py::list();
    return result;
}

py::dict asDict(const ExportPlan& plan, const LossPolicy& policy) {
    ExportReport report;
    for (const ExportPlan::File& file : plan.files)
        report.files.push_back({file.path, file.items, file.bytes, file.unit, std::nullopt, std::nullopt, 0});
    report.losses = plan.losses;
    report.notes = plan.notes;
    report.whyNothing = plan.whyNothing;
    report.existing = plan.existing;
    py::dict result = asDict(report, policy);
    result["obstacles"] = asTexts(plan.obstacles);
    return result;
}

// Reading

BundleHandle open(const Source& source, py::dict arguments, const py::object& progress) {
    Given given(std::move(arguments));
    Reading reading(source, given);
    takeFilters(given, reading.options.selected);
    reading.options.skipsUnreadable = given.flag("skip_unreadable");
    given.requireAllTaken("open");
    if (reading.options.merge)
        reading.options.merge->selected = reading.options.selected;
    const MaybeInUse used(reading.state);
    return perform(progress, [&](const auto& operation) { return BundleHandle(reading.read(operation)); });
}

py::tuple info(const Source& source, py::dict arguments, const py::object& progress) {
    Given given(std::move(arguments));
    Reading reading(source, given);
    reading.options.skipsUnreadable = true;
    const bool fields = given.flag("fields");
    const bool statistics = given.flag("stats");
    const bool bounds = given.flag("bounds");
    given.requireAllTaken("info");
    const MaybeInUse used(reading.state);
    struct Result {
        std::string text;
        std::string json;
        std::vector<std::string> failures;
        std::vector<std::string> notes;
    };
    const Result result = perform(progress, [&](const Anchor::StrongPtr<Operation>& operation) {
        const Inputs inputs = reading.read(operation);
        Inventory inventory = Inventory::of(*inputs.bundle(), inputs.reports(), bounds);
        if (statistics)
            inventory.addStatistics(*inputs.bundle(), operation);
        operation->end();
        Result made;
        made.text = fields || inventory.inputs.empty() ? inventoryText(inventory) : inventoryTable(inventory);
        if (statistics)
            made.text += statisticsText(inventory);
        made.json = inventoryJson(inventory);
        made.failures = inputs.failures();
        made.failures.insert(made.failures.end(), inventory.failures.begin(), inventory.failures.end());
        made.notes = inputs.notes();
        return made;
    });
    return py::make_tuple(textOf(result.text), textOf(result.json), asTexts(result.failures),
                          asTexts(result.notes));
}

// Writing

struct Job {
    std::unique_ptr<const ExportFormat> format;
    ExportOptions options;
};

void takeExport(Given& given, const Name& output, ExportOptions& options) {
    options.output = OutputPattern(output.bytes);
    options.overwrite = given.flag("overwrite");
    options.lastWins = given.flag("last_wins");
    takeEach(given, options.each);
    takeLosses(given, options.losses);
    takeFilters(given, options.filters);
}

Job lasJob(Given& given, const Name& output, const InputOptions& inputs) {
    LasOptions options;
    takeExport(given, output, options);
    given.value("las_version", "1.2, 1.3 or 1.4", parseLasVersion, options.version);
    options.tiles = given.flag("tiles");
    options.uncompressed = given.flag("uncompressed");
    given.value("day", "a whole number", parseNumber<int>, options.day);
    given.value("year", "a whole number", parseNumber<int>, options.year);
    given.value("point_source_id", "a number from 0 to 65535", parsePointSourceID, options.pointSourceID);
    given.each("rename", "a dict of fields and attributes", parseRenaming,
               [&](const auto& entry) { options.renames[entry.first] = entry.second; });
    given.value("scale", "a number greater than 0, or three", parseSteps, options.step);
    given.value("offset", "a number, or three", parseTriple, options.offset);
    options.verify = given.flag("verify");
    if (given.flag("plain"))
        options.setPlain(inputs);
    auto format = lasFormat(options);
    return {std::move(format), std::move(options)};
}

Job pcdJob(Given& given, const Name& output, const InputOptions&) {
    PcdOptions options;
    takeExport(given, output, options);
    given.value("ref_level", "a whole number", parseNumber<int>, options.refinementLevel);
    given.value("precision", "a whole number", parseNumber<int>, options.precision);
    given.value("cell_size", "a number greater than 0", positiveNumber, options.cellSize);
    options.exactCounts = given.flag("exact_counts");
    options.thinning = !given.flag("no_thinning");
    if (!options.thinning && options.cellSize)
        throw UsageError("thinning=False and cell_size exclude each other");
    auto format = pcdFormat(options);
    return {std::move(format), std::move(options)};
}

Job asciiJob(Given& given, const Name& output, const InputOptions&) {
    AsciiOptions options;
    takeExport(given, output, options);
    given.value("ref_level", "a whole number", parseNumber<int>, options.settings.refinementLevel);
    given.value("precision", "a number from 0", parseNumber<unsigned int>, options.settings.precision);
    options.settings.append = given.flag("append");
    options.settings.tileSuffix = given.flag("tile_suffix");
    given.value("filter_field", "the name of a field", anyText, options.settings.filterField);
    given.value("cell_types", "types and (first, last) ranges of them", parseRanges, options.cellTypes);
    auto format = asciiFormat(options);
    return {std::move(format), std::move(options)};
}

template <Job (*makeJob)(Given&, const Name&, const InputOptions&)>
py::dict write(const char* call, const Source& source, const Name& output, py::dict arguments,
               const py::object& progress) {
    Given given(std::move(arguments));
    Reading reading(source, given);
    takeTiles(given, reading.options);
    const bool isDryRun = given.flag("dry_run");
    Job job = makeJob(given, output, reading.options);
    given.requireAllTaken(call);
    prepareInputs(reading.options, job.options, *job.format);
    const LossPolicy policy = job.options.losses;
    std::vector<std::string> settings;
    job.options.showSettings = [&](const std::string& text) { settings.push_back(text); };
    const MaybeInUse used(reading.state);
    const auto withExport = [&](const Anchor::StrongPtr<Operation>& operation, const auto& work) {
        const Inputs inputs = reading.read(operation);
        const AllFieldsAfterwards afterwards(inputs);
        Export run(inputs, std::move(job.options), std::move(job.format), operation);
        return work(run);
    };
    if (isDryRun) {
        const ExportPlan plan = perform(progress, [&](const auto& operation) {
            return withExport(operation, [](Export& run) { return run.plan(); });
        });
        return asDict(plan, policy);
    }
    const ExportReport report = perform(progress, [&](const auto& operation) {
        return withExport(operation, [](Export& run) {
            run.write();
            return run.placeUnlessRefused();
        });
    });
    return asDict(report, policy, settings);
}

py::dict writeBundle(const Source& source, const Name& output, py::dict arguments,
                     const py::object& progress) {
    Given given(std::move(arguments));
    Reading reading(source, given);
    takeFilters(given, reading.options.selected);
    if (reading.options.merge)
        reading.options.merge->selected = reading.options.selected;
    takeTiles(given, reading.options);
    if (reading.options.tiles)
        reading.options.tiles->scratch = std::filesystem::path(output.bytes).parent_path();
    const bool overwrite = given.flag("overwrite");
    LossPolicy policy;
    takeLosses(given, policy);
    given.requireAllTaken("bundle");
    const MaybeInUse used(reading.state);
    const ExportReport report = perform(progress, [&](const auto& operation) {
        const Inputs inputs = reading.read(operation);
        BundleExport file(output.bytes, overwrite, inputs.identities());
        ExportReport done = file.write(inputs, *operation);
        if (!policy.refuses(done.losses)) {
            file.commit();
            done.placed = true;
        }
        return done;
    });
    return asDict(report, policy);
}

// Views

py::tuple viewPage(const Source& source, py::dict arguments, const py::object& progress) {
    Given given(std::move(arguments));
    Reading reading(source, given);
    ViewPageOptions options;
    takeFilters(given, options.filters);
    given.value("points", "a number from 1", positiveCount, options.points);
    options.title = viewTitle(reading.options.files);
    options.program = "tidewatch " TIDEWATCH_VERSION;
    given.requireAllTaken("view");
    selectInputs(reading.options, options.filters);
    const MaybeInUse used(reading.state);
    const ViewPage page = perform(progress, [&](const Anchor::StrongPtr<Operation>& operation) {
        const Inputs inputs = reading.read(operation);
        inputs.countChosen();
        ViewPage made = makeViewPage(inputs, options, *operation);
        operation->end();
        return made;
    });
    std::string text;
    for (const std::string& piece : page.text)
        text += piece;
    return py::make_tuple(py::bytes(text), page.points, asTexts(page.notes));
}

py::tuple viewPicture(const Source& source, py::dict arguments, const py::object& progress) {
    Given given(std::move(arguments));
    Reading reading(source, given);
    ViewPictureOptions options;
    takeFilters(given, options.filters);
    given.value("size", "(width, height), 200 to 20000 each", parsePictureSize, options.size);
    given.value("color", "height, class, intensity, return or rgb", parsePictureColors, options.colors);
    options.title = viewTitle(reading.options.files);
    given.requireAllTaken("picture");
    selectInputs(reading.options, options.filters);
    const MaybeInUse used(reading.state);
    std::string png;
    const ViewPicture picture = perform(progress, [&](const Anchor::StrongPtr<Operation>& operation) {
        const Inputs inputs = reading.read(operation);
        inputs.countChosen();
        ViewPicture made = makeViewPicture(inputs, options, *operation);
        operation->end();
        png = pngBytes(made.image);
        return made;
    });
    py::array_t<std::uint8_t> pixels({static_cast<py::ssize_t>(picture.image.height),
                                      static_cast<py::ssize_t>(picture.image.width), py::ssize_t{3}});
    std::memcpy(pixels.mutable_data(), picture.image.pixels.data(), picture.image.pixels.size());
    return py::make_tuple(py::bytes(png), picture.points, pixels);
}

py::dict placeView(const Name& output, bool overwrite, const py::bytes& content, std::uint64_t points,
                   const std::optional<BundleHandle>& bundle, const Files& files) {
    std::vector<Anchor::FileIdentity> inputs;
    if (bundle)
        inputs = bundle->state()->inputs.identities();
    for (const Name& name : files) {
        if (const auto identity = Anchor::FileIdentity::of(name.bytes))
            inputs.push_back(*identity);
    }
    const std::string pieces[] = {content};
    const ExportReport report = perform(py::none(), [&](const auto&) {
        ViewFile file(output.bytes, overwrite, inputs);
        ExportReport done;
        done.files.push_back(file.place(pieces, points));
        done.placed = true;
        return done;
    });
    return asDict(report, {});
}

// The rest

py::dict check(const Name& file, py::dict arguments, const py::object& progress) {
    Given given(std::move(arguments));
    InputOptions inputs;
    takeReading(given, inputs);
    given.requireAllTaken("check");
    const CheckOptions options{inputs.memoryLimit, inputs.requiresSandbox};
    const CheckReport report =
        perform(progress, [&](const auto& operation) { return checkFile(file.bytes, options, operation); });
    py::list findings;
    for (const CheckFinding& finding : report.findings())
        findings.append(py::make_tuple(finding.kind, std::string(severityName(finding.severity)),
                                       textOf(finding.place), textOf(finding.message), finding.count));
    py::dict result;
    result["file"] = Name{report.file()};
    result["format"] = textOf(report.format());
    result["findings"] = findings;
    return result;
}

BundleHandle sample(std::uint64_t points, std::uint64_t seed) {
    if (points == 0)
        throw UsageError("points takes a number from 1");
    return perform(py::none(), [&](const auto&) {
        return BundleHandle(Inputs(makeSampleSurvey({points, seed})));
    });
}

py::dict sandbox() {
    const Sandbox state = perform(py::none(), [](const auto&) { return probeSandbox(); });
    py::dict result;
    result["seccomp"] = state.seccomp;
    result["landlock"] = state.landlock;
    result["limits"] = state.limits;
    return result;
}

} // namespace

void bindCalls(py::module_& module) {
    module.attr("__version__") = TIDEWATCH_VERSION;
    module.attr("LOSS_KINDS") = py::tuple(py::cast(lossKinds));
    module.def("open", open);
    module.def("info", info);
    module.def("las",
               [](const Source& source, const Name& output, py::dict given, const py::object& progress) {
                   return write<lasJob>("las", source, output, std::move(given), progress);
               });
    module.def("pcd",
               [](const Source& source, const Name& output, py::dict given, const py::object& progress) {
                   return write<pcdJob>("pcd", source, output, std::move(given), progress);
               });
    module.def("ascii",
               [](const Source& source, const Name& output, py::dict given, const py::object& progress) {
                   return write<asciiJob>("ascii", source, output, std::move(given), progress);
               });
    module.def("bundle", writeBundle);
    module.def("view_page", viewPage);
    module.def("view_picture", viewPicture);
    module.def("can_make_pages", canMakeViewPages);
    module.def("place_view", placeView);
    module.def("check", check);
    module.def("sample", sample);
    module.def("sandbox", sandbox);
    module.def("cache_limit", [] { return Anchor::Cache::MemCache().limit(); });
    module.def("set_cache_limit", [](std::uint64_t bytes) {
        const py::gil_scoped_release released;
        Anchor::Cache::MemCache().setLimit(bytes);
    });
    module.def("cache_bytes", [] { return Anchor::Cache::MemCache().bytesInUse(); });
}

} // namespace Tidewatch::Python
