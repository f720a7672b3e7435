// SPDX-License-Identifier: Apache-2.0
#include "anchor/printable.hpp"
#include "host/info/inventoryTexts.hpp"
#include "library/report/Wording.hpp"

#include <algorithm>
#include <cstddef>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

std::string corner(const Geom::PhysicalSpace::point& p) {
    return fmt::format("({}, {}, {})", shortestText(p.x), shortestText(p.y), shortestText(p.z));
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

void appendGrid(std::string& text, const Inventory::Grid& grid) {
    text += fmt::format("  grid \"{}\": {}", grid.name, counted(grid.points, "point"));
    if (grid.fragments > 0)
        text += ", " + counted(grid.fragments, "fragment");
    if (!grid.origin.empty())
        text += ", from " + grid.origin;
    text += "\n";
    if (grid.bounds)
        text += fmt::format("    from {} to {}\n", corner(grid.bounds->lower), corner(grid.bounds->upper));
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

} // namespace

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
    text += fmt::format("{}, {}, {}\n", counted(inventory.slices.size(), "time slice"),
                        counted(inventory.grids(), "grid"), counted(inventory.points(), "point"));
    for (const auto& slice : inventory.slices) {
        text += "time " + shortestText(slice.time) + "\n";
        for (const auto& grid : slice.grids)
            appendGrid(text, grid);
    }
    return text;
}

} // namespace Tidewatch
