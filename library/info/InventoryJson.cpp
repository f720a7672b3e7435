// SPDX-License-Identifier: Apache-2.0
#include "library/info/inventoryTexts.hpp"
#include "library/report/Json.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace Tidewatch {

namespace {

template <class Triple>
Json triple(const Triple& t) {
    return {t.x, t.y, t.z};
}

Json boxJson(const Inventory::Box& box) {
    return {{"lower", triple(box.lower)}, {"upper", triple(box.upper)}};
}

Json inputJson(const Inventory::Input& input) {
    Json json{{"file", input.file}, {"kind", input.kind}, {"not_carried", input.notCarried}};
    if (input.coordinateStep)
        json["coordinate_step"] = triple(*input.coordinateStep);
    json["points"] = input.points;
    if (input.box)
        json["box"] = boxJson(*input.box);
    json["times"] = input.times;
    json["reference_systems"] = input.systems;
    Json& facts = json["facts"] = Json::array();
    for (const auto& fact : input.facts)
        facts.push_back({{"name", fact.name}, {"text", fact.text}});
    return json;
}

Json fieldJson(const Inventory::Field& field) {
    Json json{{"name", field.name},
              {"type", field.elementType},
              {"elements", field.elements},
              {"fragments", field.fragments}};
    if (!field.extents.empty())
        json["extents"] = field.extents;
    return json;
}

Json skeletonJson(const Inventory::Skeleton& skeleton) {
    Json json{{"dimension", skeleton.dimension},
              {"refinement", skeleton.refinement},
              {"excluded", skeleton.isExcluded},
              {"points", skeleton.points}};
    Json& list = json["representations"] = Json::array();
    for (const auto& representation : skeleton.representations) {
        Json fields = Json::array();
        for (const auto& field : representation.fields)
            fields.push_back(fieldJson(field));
        Json entry;
        entry["chart"] = representation.chart.empty() ? Json() : Json(representation.chart);
        entry["fields"] = std::move(fields);
        list.push_back(std::move(entry));
    }
    return json;
}

Json numberJson(const GridStatistics::Range& range, long double value) {
    if (!range.isWhole)
        return static_cast<double>(value);
    return value < 0 ? Json(static_cast<std::int64_t>(value)) : Json(static_cast<std::uint64_t>(value));
}

Json countsJson(const char* name, const std::array<std::uint64_t, 256>& counts) {
    Json list = Json::array();
    for (std::size_t number = 0; number < counts.size(); ++number) {
        if (counts[number] != 0)
            list.push_back({{name, number}, {"points", counts[number]}});
    }
    return list;
}

Json statisticsJson(const GridStatistics& statistics) {
    Json ranges = Json::array();
    for (const GridStatistics::Range& range : statistics.ranges) {
        Json entry{{"name", range.name}, {"values", range.values}, {"not_finite", range.notFinite}};
        if (range.values != 0) {
            entry["lowest"] = numberJson(range, range.lowest);
            entry["highest"] = numberJson(range, range.highest);
        }
        ranges.push_back(std::move(entry));
    }
    return {{"ranges", std::move(ranges)},
            {"classes", countsJson("class", statistics.classes)},
            {"returns", countsJson("return", statistics.returns)}};
}

Json gridJson(const Inventory::Grid& grid) {
    Json json{
        {"name", grid.name}, {"origin", grid.origin}, {"points", grid.points}, {"fragments", grid.fragments}};
    if (grid.bounds)
        json["bounds"] = boxJson(*grid.bounds);
    if (!grid.systemName.empty()) {
        Json& system = json["reference_system"] = {{"name", grid.systemName}};
        if (!grid.systemCode.empty())
            system["code"] = grid.systemCode;
    }
    if (!grid.systemUnreadable.empty())
        json["reference_system_not_read"] = grid.systemUnreadable;
    if (grid.statistics)
        json["statistics"] = statisticsJson(*grid.statistics);
    Json& list = json["skeletons"] = Json::array();
    for (const auto& skeleton : grid.skeletons)
        list.push_back(skeletonJson(skeleton));
    return json;
}

} // namespace

std::string inventoryJson(const Inventory& inventory) {
    Json document;
    Json& inputs = document["inputs"] = Json::array();
    for (const auto& input : inventory.inputs)
        inputs.push_back(inputJson(input));
    document["points"] = inventory.points();
    Json& slices = document["slices"] = Json::array();
    for (const auto& slice : inventory.slices) {
        Json grids = Json::array();
        for (const auto& grid : slice.grids)
            grids.push_back(gridJson(grid));
        Json entry;
        entry["time"] = slice.time;
        entry["grids"] = std::move(grids);
        slices.push_back(std::move(entry));
    }
    return jsonText(document);
}

} // namespace Tidewatch
