// SPDX-License-Identifier: Apache-2.0
#include "library/info/Inventory.hpp"

#include "anchor/Error.hpp"
#include "library/crs/gridSystem.hpp"
#include "sheaf/ElementTypes.hpp"

#include <algorithm>
#include <limits>
#include <utility>

namespace Tidewatch {

namespace {

std::uint64_t elementsOf(const Sheaf::CreativeArrayBase& data) {
    const auto extents = data.extents();
    return extents ? extents->elementCount().value_or(0) : 0;
}

std::uint64_t elementsOf(const Sheaf::Field& field) {
    std::uint64_t elements = 0;
    field.forEachFragment([&](const auto&, const Sheaf::Field::Creator& data) {
        elements += elementsOf(*data);
        return true;
    });
    return elements;
}

Inventory::Field fieldOf(const Sheaf::FieldID& id, const Sheaf::Field& field) {
    Inventory::Field entry;
    entry.name = id.name();
    entry.elementType = Sheaf::elementTypeName(field.getElementType());
    std::optional<Sheaf::Extents> last;
    field.forEachFragment([&](const auto&, const Sheaf::Field::Creator& data) {
        ++entry.fragments;
        entry.elements += elementsOf(*data);
        last = data->extents();
        return true;
    });
    if (entry.fragments == 1 && last && last->rank() > 1) {
        for (std::size_t axis = 0; axis < last->rank(); ++axis)
            entry.extents.push_back((*last)[axis]);
    }
    return entry;
}

std::uint64_t pointsOf(const Sheaf::Skeleton& skeleton, const Anchor::StrongPtr<Sheaf::BaseSpace>& chart) {
    const auto representation = skeleton.representations()(chart);
    return representation && representation->Positions() ? elementsOf(*representation->Positions()) : 0;
}

Inventory::Skeleton skeletonOf(const Sheaf::Skeleton& skeleton,
                               const Anchor::StrongPtr<Sheaf::BaseSpace>& chart) {
    Inventory::Skeleton entry;
    entry.dimension = skeleton.dimension();
    entry.refinement = skeleton.refinement();
    entry.isExcluded = skeleton.exclusionMark() != 0;
    entry.points = pointsOf(skeleton, chart);
    skeleton.representations().forEach(
        [&](const Sheaf::BaseSpace& space, const Sheaf::Representation& representation) {
            Inventory::Representation fields;
            if (const auto* const named = dynamic_cast<const Sheaf::CartesianChart*>(&space))
                fields.chart = named->name();
            representation.forEachField([&](const Sheaf::FieldID& id, const Sheaf::Field& field) {
                fields.fields.push_back(fieldOf(id, field));
                return true;
            });
            entry.representations.push_back(std::move(fields));
            return true;
        });
    return entry;
}

/// Nullopt if some of the positions would have to be read but may not be.
std::optional<Inventory::Box> boundsOf(const Sheaf::Grid& grid, bool readPositions) {
    Geom::BoundingBox box;
    bool isComplete = true;
    grid.skeletons().iterate_all([&](const Sheaf::FieldFragment& at) {
        if (at.id.name() != "Positions")
            return true;
        isComplete = Sheaf::ExpandBBox(box, *at.data, readPositions) || readPositions;
        return isComplete;
    });
    if (!isComplete || box.empty())
        return std::nullopt;
    return Inventory::Box{box.lower(), box.upper()};
}

Inventory::Grid gridOf(const std::string& name, const Sheaf::Grid& grid, bool readPositions,
                       std::vector<std::string>& failures) {
    Inventory::Grid entry;
    entry.name = name;
    entry.origin = grid.origin();
    entry.fragments = grid.fragments().size();
    const auto chart = grid.findCartesianChart("");
    if (const auto vertices = grid.findHighestHomogenousVertexRefinement(std::numeric_limits<int>::max()))
        entry.points = pointsOf(*vertices, chart);
    grid.skeletons().forEach([&](const Sheaf::Skeleton& skeleton) {
        entry.skeletons.push_back(skeletonOf(skeleton, chart));
        return true;
    });
    const GridSystem system = GridSystem::of(grid);
    if (system.system) {
        entry.systemName = system.system->name();
        entry.systemCode = system.system->codeText();
    } else if (!system.text.empty()) {
        entry.systemUnreadable = "its well-known text";
    }
    if (!system.unreadable.empty())
        entry.systemUnreadable = system.unreadable;
    try {
        entry.bounds = boundsOf(grid, readPositions);
    } catch (const Anchor::Error& error) {
        failures.emplace_back(error.what());
    }
    return entry;
}

void include(Geom::BoundingBox& box, const Inventory::Box& other) {
    box.expand(other.lower);
    box.expand(other.upper);
}

template <class T>
void addOnce(std::vector<T>& list, const T& value) {
    if (std::find(list.begin(), list.end(), value) == list.end())
        list.push_back(value);
}

std::string systemOf(const Inventory::Grid& grid) {
    if (!grid.systemCode.empty())
        return grid.systemCode;
    if (!grid.systemName.empty())
        return grid.systemName;
    return grid.systemUnreadable.empty() ? std::string() : "not read: " + grid.systemUnreadable;
}

/// What the grids of a file tell of it, in one line. Some contents of the report are known only once arrays have been
/// created.
Inventory::Input inputOf(const ConvLib::InputReport& report, const std::vector<Inventory::Slice>& slices) {
    Inventory::Input input{report.file(), report.kind(), report.notCarried(), report.coordinateStep(),
                           report.facts()};
    Geom::BoundingBox box;
    bool isComplete = true;
    for (const Inventory::Slice& slice : slices) {
        for (const Inventory::Grid& grid : slice.grids) {
            if (grid.origin != input.file)
                continue;
            input.points += grid.points;
            addOnce(input.times, slice.time);
            if (const std::string system = systemOf(grid); !system.empty())
                addOnce(input.systems, system);
            if (grid.bounds)
                include(box, *grid.bounds);
            else
                isComplete = isComplete && grid.points == 0;
        }
    }
    if (isComplete && !box.empty())
        input.box = {box.lower(), box.upper()};
    else if (const auto stated = report.statedBox())
        input.box = {stated->lower, stated->upper};
    return input;
}

} // namespace

std::uint64_t Inventory::grids() const {
    std::uint64_t number = 0;
    for (const Slice& slice : slices)
        number += slice.grids.size();
    return number;
}

std::uint64_t Inventory::points() const {
    std::uint64_t number = 0;
    for (const Slice& slice : slices) {
        for (const Grid& grid : slice.grids)
            number += grid.points;
    }
    return number;
}

Inventory Inventory::of(const Sheaf::Bundle& bundle,
                        std::span<const Anchor::StrongPtr<ConvLib::InputReport>> reports,
                        bool readPositions) {
    Inventory inventory;
    for (const auto& [time, weakSlice] : bundle.slices()) {
        const auto slice = weakSlice.lock();
        if (!slice)
            continue;
        Slice entry;
        entry.time = time;
        for (const auto& [name, weakGrid] : slice->grids()) {
            if (const auto grid = weakGrid.lock())
                entry.grids.push_back(gridOf(name, *grid, readPositions, inventory.failures));
        }
        inventory.slices.push_back(std::move(entry));
    }
    for (const auto& report : reports)
        inventory.inputs.push_back(inputOf(*report, inventory.slices));
    return inventory;
}

void Inventory::addStatistics(const Sheaf::Bundle& bundle, const Anchor::StrongPtr<Progress>& progress) {
    if (progress)
        progress->begin("reading", static_cast<double>(points()), "points");
    std::uint64_t done = 0;
    for (Slice& slice : slices) {
        const auto found = bundle.slices().find(slice.time);
        const auto known = found != bundle.slices().end() ? found->second.lock() : nullptr;
        for (Grid& grid : slice.grids) {
            const auto entry = known ? known->grids().find(grid.name) : decltype(known->grids().end())();
            try {
                if (known && entry != known->grids().end()) {
                    if (const auto source = entry->second.lock())
                        grid.statistics = GridStatistics::of(*source, progress, done);
                }
            } catch (const Anchor::Error& error) {
                failures.emplace_back(error.what());
            }
            done += grid.points;
        }
    }
}

} // namespace Tidewatch
