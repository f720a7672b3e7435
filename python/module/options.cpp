// SPDX-License-Identifier: Apache-2.0
#include "python/module/options.hpp"

#include "anchor/processLimits.hpp"
#include "python/module/errors.hpp"
#include "workers/TbbWorkers.hpp"

#include <array>
#include <optional>
#include <utility>

namespace Tidewatch::Python {

namespace {

std::string bytesOf(const py::handle& text) {
    if (py::isinstance<py::bytes>(text))
        return text.cast<std::string>();
    // As the system's own names: any bytes.
    const auto encoded =
        py::reinterpret_steal<py::bytes>(PyUnicode_AsEncodedString(text.ptr(), "utf-8", "surrogateescape"));
    if (!encoded)
        throw py::error_already_set();
    return encoded;
}

} // namespace

py::object Given::take(const char* name) {
    py::object value = arguments_[name];
    PyDict_DelItemString(arguments_.ptr(), name);
    return value;
}

std::vector<std::string> Given::texts(const char* name) {
    if (!has(name))
        return {};
    const py::object value = take(name);
    if (!py::isinstance<py::list>(value))
        return {bytesOf(value)};
    std::vector<std::string> texts;
    for (const py::handle text : value)
        texts.push_back(bytesOf(text));
    return texts;
}

bool Given::flag(const char* name) {
    return has(name) && take(name).cast<bool>();
}

void Given::requireAllTaken(const char* call) const {
    for (const auto& [name, value] : arguments_)
        raise(PyExc_TypeError, std::string(call) + " has no use for " + py::str(name).cast<std::string>());
}

void takeReading(Given& given, InputOptions& options) {
    given.value("memory_limit", "bytes, such as 512M or 4G", parseByteSize, options.memoryLimit);
    given.value("sandbox", "auto or require", parseSandboxWish, options.requiresSandbox);
}

void takeFiles(Given& given, InputOptions& options) {
    given.value(
        "slice_time", "a number, or as many as there are inputs",
        [](std::string_view text) { return parseList(text, finiteNumber); }, options.sliceTimes);
    given.value("fragment_points", "a number from 1", positiveCount, options.fragmentPoints);
    given.value("crs", "a reference system", anyText, options.referenceSystem);
    takeReading(given, options);
}

void takePoints(Given& given, InputOptions& options) {
    PointChoice& points = options.points;
    given.value("classes", "numbers from 0 to 255", parseClasses, points.classes);
    given.value("returns", "first, last, only or numbers from 1 to 15", parseReturns, points.returns);
    given.value("box", "(xmin, ymin, xmax, ymax) or six numbers", parseBox, points.box);
    if (given.flag("cells_as_points"))
        options.cellsAsPoints.emplace();
    if (given.has("z_band") && !options.cellsAsPoints)
        throw UsageError("z_band is for cells_as_points=True");
    given.each("z_band", "a number or the name of a field", anyText,
               [&](const std::string& field) { options.cellsAsPoints->heights = field; });
    if (given.flag("merge"))
        options.merge.emplace();
    if (given.has("grid_name") && !options.merge)
        throw UsageError("grid_name is for merge=True");
    given.each("grid_name", "a name", parseGridName,
               [&](const std::string& name) { options.merge->gridName = name; });
}

void takeJobs(Given& given, InputOptions& options) {
    unsigned jobs = Anchor::processCores();
    given.value("jobs", "a number from 1 to 1024", parseJobs, jobs);
    options.workers = makeWorkers(jobs);
}

void takeTiles(Given& given, InputOptions& options) {
    std::optional<double> size;
    std::array<double, 2> origin{};
    given.value("tile_size", "a number greater than 0", positiveNumber, size);
    if (given.has("tile_origin") && !size)
        throw UsageError("tile_origin is for tile_size");
    given.value("tile_origin", "two numbers", parsePair, origin);
    if (size)
        options.tiles.emplace(TileOptions{TileLayout(*size, origin)});
}

void takeEach(Given& given, EachOutput& each) {
    each.isPlaced = given.flag("each");
    each.keepsGoing = given.flag("keep_going");
    each.skipsExisting = given.flag("skip_existing");
    given.value("part", "(k, n), such as (2, 8)", parsePart, each.part);
}

void takeFilters(Given& given, Filters& filters) {
    given.each("time", "a time, or (min, max)", parseTimeRange,
               [&](const auto& range) { filters.times.push_back(range); });
    given.each("grid", "a pattern", anyText, [&](const auto& glob) { filters.grids.push_back(glob); });
    given.each("field", "a pattern", anyText, [&](const auto& glob) { filters.fields.push_back(glob); });
}

void takeLosses(Given& given, LossPolicy& policy) {
    policy.strict = given.flag("strict");
    given.each("accept", "kinds of losses", parseLossKind,
               [&](const std::string& kind) { policy.accepted.insert(kind); });
}

} // namespace Tidewatch::Python
