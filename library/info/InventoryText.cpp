// SPDX-License-Identifier: Apache-2.0
#include "anchor/printable.hpp"
#include "library/info/inventoryTexts.hpp"
#include "library/report/Wording.hpp"
#include "library/view/PointClasses.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <tuple>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

using Step = std::optional<Geom::PhysicalSpace::vector>;

std::string corner(const Geom::PhysicalSpace::point& p, const Step& step) {
    const Geom::PhysicalSpace::vector steps = step.value_or(Geom::PhysicalSpace::vector{0, 0, 0});
    return fmt::format("({}, {}, {})", coordinateText(p.x, steps.x), coordinateText(p.y, steps.y),
                       coordinateText(p.z, steps.z));
}

/// The coordinate step of the file that a grid comes from.
Step stepOf(const Inventory& inventory, const Inventory::Grid& grid) {
    for (const auto& input : inventory.inputs) {
        if (input.file == grid.origin)
            return input.coordinateStep;
    }
    return std::nullopt;
}

std::string extentsText(const Inventory::Field& field) {
    std::string text;
    for (const std::uint64_t extent : field.extents)
        text += (text.empty() ? "  " : " x ") + grouped(extent);
    return text;
}

struct Columns {
    std::size_t name = 0;
    std::size_t type = 0;
    std::size_t elements = 0;

    void widen(const Inventory::Field& field) {
        name = std::max(name, field.name.size());
        type = std::max(type, field.elementType.size());
        elements = std::max(elements, counted(field.elements, "value").size());
    }
};

Columns columnsOf(const Inventory::Grid& grid) {
    Columns columns;
    for (const auto& skeleton : grid.skeletons) {
        for (const auto& representation : skeleton.representations) {
            for (const auto& field : representation.fields)
                columns.widen(field);
        }
    }
    return columns;
}

void appendSkeleton(std::string& text, const Inventory::Skeleton& skeleton, const Columns& columns) {
    text += skeleton.dimension == 0 ? "    vertices"
                                    : fmt::format("    skeleton of dimension {}", skeleton.dimension);
    if (!skeleton.refinement.empty())
        text += fmt::format(", refinement ({})", fmt::join(skeleton.refinement, ", "));
    text += ": " + counted(skeleton.points, "point");
    if (skeleton.isExcluded)
        text += " (not to be exported)";
    text += "\n";
    for (const auto& representation : skeleton.representations) {
        text += representation.chart.empty() ? std::string("      relative to another skeleton\n")
                                             : fmt::format("      chart {}\n", representation.chart);
        for (const auto& field : representation.fields)
            text += fmt::format("        {:<{}}  {:<{}}  {:>{}}  {}{}\n", field.name, columns.name,
                                field.elementType, columns.type, counted(field.elements, "value"),
                                columns.elements, counted(field.fragments, "fragment"), extentsText(field));
    }
}

void appendGrid(std::string& text, const Inventory::Grid& grid, const Step& step) {
    text += fmt::format("  grid \"{}\": {}", grid.name, counted(grid.points, "point"));
    if (grid.fragments > 0)
        text += ", " + counted(grid.fragments, "fragment");
    if (!grid.origin.empty())
        text += ", from " + grid.origin;
    text += "\n";
    if (grid.bounds)
        text += fmt::format("    from {} to {}\n", corner(grid.bounds->lower, step),
                            corner(grid.bounds->upper, step));
    if (!grid.systemName.empty())
        text += fmt::format("    coordinate reference system: {}{}\n", Anchor::printable(grid.systemName),
                            grid.systemCode.empty() ? "" : " (" + grid.systemCode + ")");
    if (!grid.systemUnreadable.empty())
        text += fmt::format("    coordinate reference system, not read: {}\n",
                            Anchor::printable(grid.systemUnreadable));
    const Columns columns = columnsOf(grid);
    for (const auto& skeleton : grid.skeletons)
        appendSkeleton(text, skeleton, columns);
}

std::string totals(const Inventory& inventory) {
    return fmt::format("{}, {}, {}\n", counted(inventory.slices.size(), "time slice"),
                       counted(inventory.grids(), "grid"), counted(inventory.points(), "point"));
}

/// "635619.85 to 638982.55".
std::string rangeText(double lower, double upper, double step) {
    return coordinateText(lower, step) + " to " + coordinateText(upper, step);
}

using Row = std::array<std::string, 8>;

const Row titles{"file", "format", "points", "time", "x", "y", "z", "system"};

Row rowOf(const Inventory::Input& input) {
    Row row{Anchor::printable(input.file), input.kind, grouped(input.points)};
    if (!input.times.empty())
        row[3] = input.times.size() == 1
                     ? shortestText(input.times.front())
                     : fmt::format("{} ({} to {})", input.times.size(), shortestText(input.times.front()),
                                   shortestText(input.times.back()));
    if (input.box) {
        const Geom::PhysicalSpace::vector step =
            input.coordinateStep.value_or(Geom::PhysicalSpace::vector{0, 0, 0});
        row[4] = rangeText(input.box->lower.x, input.box->upper.x, step.x);
        row[5] = rangeText(input.box->lower.y, input.box->upper.y, step.y);
        row[6] = rangeText(input.box->lower.z, input.box->upper.z, step.z);
    }
    row[7] = input.systems.empty()       ? std::string("none")
             : input.systems.size() == 1 ? Anchor::printable(input.systems.front())
                                         : fmt::format("{} systems", input.systems.size());
    return row;
}

std::string tableText(const std::vector<Row>& rows) {
    std::array<std::size_t, std::tuple_size_v<Row>> widths{};
    for (const Row& row : rows) {
        for (std::size_t column = 0; column < row.size(); ++column)
            widths[column] = std::max(widths[column], row[column].size());
    }
    constexpr std::size_t points = 2;
    std::string text;
    for (const Row& row : rows) {
        std::string line;
        for (std::size_t column = 0; column < row.size(); ++column)
            line += column == points ? fmt::format("{:>{}}  ", row[column], widths[column])
                                     : fmt::format("{:<{}}  ", row[column], widths[column]);
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    return text;
}

/// The report on a single file, a line for each property.
std::string fileText(const Inventory::Input& input) {
    constexpr std::size_t maxFacts = 30;
    const Row row = rowOf(input);
    std::vector<std::pair<std::string, std::string>> lines;
    for (std::size_t column = 2; column < row.size(); ++column) {
        if (!row[column].empty())
            lines.emplace_back(titles[column], row[column]);
    }
    for (const auto& fact : input.facts)
        lines.emplace_back(fact.name, fact.text);
    if (input.coordinateStep)
        lines.emplace_back("steps", fmt::format("{}, {}, {}", shortestText(input.coordinateStep->x),
                                                shortestText(input.coordinateStep->y),
                                                shortestText(input.coordinateStep->z)));
    if (!input.notCarried.empty())
        lines.emplace_back("not read", joined(input.notCarried));
    std::string text = fmt::format("{}: {}\n", row[0], row[1]);
    for (std::size_t i = 0; i < lines.size() && i < maxFacts; ++i)
        text += fmt::format("  {:<12}  {}\n", lines[i].first, lines[i].second);
    if (lines.size() > maxFacts)
        text += fmt::format("  ... and {} more\n", lines.size() - maxFacts);
    return text;
}

std::string numberText(const GridStatistics::Range& range, long double value, double step) {
    if (range.isWhole)
        return fmt::format("{:.0f}", value);
    if (range.name.starts_with("Positions."))
        return coordinateText(static_cast<double>(value), step);
    // Without an exponent if that is readable.
    std::string text = range.isFloat ? fmt::format("{}", static_cast<float>(value))
                                     : fmt::format("{}", static_cast<double>(value));
    return text.ends_with(".0") ? text.substr(0, text.size() - 2) : text;
}

double stepOfRange(const std::string& name, const Step& step) {
    if (!step)
        return 0;
    return name == "Positions.x"   ? step->x
           : name == "Positions.y" ? step->y
           : name == "Positions.z" ? step->z
                                   : 0;
}

void appendCounts(std::string& text, const char* what, const std::array<std::uint64_t, 256>& counts,
                  bool areClasses) {
    std::size_t width = 0;
    for (const std::uint64_t count : counts)
        width = std::max(width, grouped(count).size());
    for (std::size_t number = 0; number < counts.size(); ++number) {
        if (counts[number] != 0)
            text += fmt::format("    {} {:>3}  {:>{}}{}{}\n", what, number, counted(counts[number], "point"),
                                width + std::string(" points").size(), areClasses ? "  " : "",
                                areClasses ? pointClassName(static_cast<std::uint8_t>(number)) : "");
    }
}

void appendStatistics(std::string& text, const GridStatistics& statistics, const Step& step) {
    std::size_t name = 0;
    for (const auto& range : statistics.ranges)
        name = std::max(name, range.name.size());
    for (const auto& range : statistics.ranges) {
        const double ownStep = stepOfRange(range.name, step);
        text += fmt::format("    {:<{}}  ", range.name, name);
        text += range.values == 0 ? std::string("no finite number")
                                  : numberText(range, range.lowest, ownStep) + " to " +
                                        numberText(range, range.highest, ownStep);
        if (range.notFinite != 0)
            text += fmt::format(", {} not finite", grouped(range.notFinite));
        text += "\n";
    }
    appendCounts(text, "class", statistics.classes, true);
    appendCounts(text, "return", statistics.returns, false);
}

} // namespace

std::string inventoryTable(const Inventory& inventory, std::size_t mostFiles) {
    if (inventory.inputs.size() == 1)
        return fileText(inventory.inputs.front()) + totals(inventory);
    std::vector<Row> rows{titles};
    for (std::size_t i = 0; i < inventory.inputs.size() && i < mostFiles; ++i)
        rows.push_back(rowOf(inventory.inputs[i]));
    std::string text = tableText(rows);
    if (inventory.inputs.size() > mostFiles)
        text +=
            fmt::format("... and {} more; --json shows all\n", grouped(inventory.inputs.size() - mostFiles));
    return text + totals(inventory);
}

std::string statisticsText(const Inventory& inventory) {
    std::string text;
    for (const auto& slice : inventory.slices) {
        for (const auto& grid : slice.grids) {
            if (!grid.statistics)
                continue;
            text += fmt::format("{}: {}\n", gridAtTime(Anchor::printable(grid.name), slice.time),
                                counted(grid.points, "point"));
            appendStatistics(text, *grid.statistics, stepOf(inventory, grid));
        }
    }
    return text;
}

std::string inventoryText(const Inventory& inventory) {
    std::string text;
    for (const auto& input : inventory.inputs) {
        text += fmt::format("{}: {}\n", input.file, input.kind);
        if (input.coordinateStep)
            text +=
                fmt::format("  coordinates in steps of {}, {}, {}\n", shortestText(input.coordinateStep->x),
                            shortestText(input.coordinateStep->y), shortestText(input.coordinateStep->z));
        if (!input.notCarried.empty())
            text += fmt::format("  in the file, but not in the bundle: {}\n", joined(input.notCarried));
    }
    text += totals(inventory);
    for (const auto& slice : inventory.slices) {
        text += "time " + shortestText(slice.time) + "\n";
        for (const auto& grid : slice.grids)
            appendGrid(text, grid, stepOf(inventory, grid));
    }
    return text;
}

} // namespace Tidewatch
