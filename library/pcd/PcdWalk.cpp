// SPDX-License-Identifier: Apache-2.0
#include "library/pcd/PcdWalk.hpp"

#include "sheaf/ElementTypes.hpp"
#include "sheaf/TypedArray.hpp"

#include <algorithm>
#include <cstddef>
#include <typeinfo>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

using Geom::PhysicalSpace;

const std::string positionsName = "Positions";
const std::string intensityName = "Intensity";

std::uint64_t elementsOf(const Sheaf::CreativeArrayBase& data) {
    const auto extents = data.extents();
    return extents ? extents->elementCount().value_or(0) : 0;
}

} // namespace

PcdWalk::PcdWalk(RunScope scope, const Inputs& inputs, Selection& selection, int refinementLevel,
                 Anchor::StrongPtr<Progress> progress)
    : RunRecorder(std::move(scope), progress),
      progress_(std::move(progress)) {
    selection.forEachGrid(*inputs.bundle(),
                          [&](double time, const std::string& name, const Sheaf::Grid& grid) {
                              if (!this->scope().admits(time) || !this->scope().admits(name))
                                  return;
                              Plan plan = planOf(grid, selection, refinementLevel);
                              if (const auto report = inputs.reportOf(name, grid.origin()))
                                  plan.grid.inputStep = report->coordinateStep();
                              for (const Stop& stop : plan.stops)
                                  totalElements_ += stop.elements;
                              plans_.try_emplace({time, name}, std::move(plan));
                          });
    progress_->begin("reading", static_cast<double>(totalElements_), "values");
}

PcdWalk::~PcdWalk() = default;

PcdWalk::Plan PcdWalk::planOf(const Sheaf::Grid& grid, Selection& selection, int refinementLevel) {
    Plan plan;
    // The conditions, the order and the bound are those that the exporter states.
    const auto reference = grid.findHighestHomogenousVertexRefinement(100000000);
    if (!reference) {
        plan.grid.obstacle = "it has no vertices of one refinement in all directions";
        return plan;
    }
    const auto representation = reference->representations()(grid.findCartesianChart(""));
    if (!representation || !representation->Positions()) {
        plan.grid.obstacle = "it has no Positions in its default chart";
        return plan;
    }
    bool hasSkeleton = false;
    std::uint64_t points = 0;
    grid.skeletons().iterate_all([&](const Sheaf::FieldFragment& at) {
        const bool isSelected = refinementLevel == -1 ? &at.skeleton == reference.get()
                                                      : at.skeleton.refinementLevel() == refinementLevel;
        if (!isSelected || at.skeleton.exclusionMark() != 0)
            return true;
        hasSkeleton = true;
        const std::string& field = at.id.name();
        if (!selection.UseThisField(field))
            return true;
        const std::type_info& type = at.data->elementType();
        std::uint64_t elements = 0;
        if (field == positionsName) {
            elements = type == typeid(PhysicalSpace::point) ? elementsOf(*at.data) : 0;
            points += elements;
        } else if (field == intensityName) {
            if (type == typeid(unsigned short))
                elements = elementsOf(*at.data);
            else
                plan.grid.unfitIntensities.insert(std::string(Sheaf::elementTypeName(type)));
            plan.grid.intensities += elements;
        } else {
            plan.grid.otherFields.insert(field);
        }
        plan.stops.push_back({field, at.data, elements});
        return true;
    });
    if (!hasSkeleton)
        plan.grid.obstacle =
            refinementLevel == -1
                ? "its vertices are marked as not to be exported, or hold no data"
                : fmt::format("it has nothing to export at refinement level {}", refinementLevel);
    else if (points == 0)
        plan.grid.obstacle = selection.UseThisField(positionsName)
                                 ? "it has no position stored as a point"
                                 : "the field filter leaves out its Positions";
    return plan;
}

const PcdWalk::Grid* PcdWalk::find(const ExportedGrid& exported) const {
    const auto plan = plans_.find({exported.time, exported.name});
    return plan != plans_.end() ? &plan->second.grid : nullptr;
}

void PcdWalk::gridBegins(double time, const std::string& name) {
    RunRecorder::gridBegins(time, name);
    leaveStop();
    const ExportedGrid& exported = grids().back();
    const auto plan = plans_.find({exported.time, exported.name});
    current_ = plan != plans_.end() ? &plan->second : nullptr;
    nextStop_ = 0;
    progress_->say("reading " + exported.name);
}

void PcdWalk::fragmentBegins(std::string_view field, std::string_view, std::uint64_t) {
    leaveStop();
    if (current_ == nullptr)
        return;
    const auto& stops = current_->stops;
    const auto next = std::find_if(stops.begin() + static_cast<std::ptrdiff_t>(nextStop_), stops.end(),
                                   [&](const Stop& stop) { return stop.field == field; });
    if (next == stops.end())
        return;
    stop_ = &*next;
    nextStop_ = static_cast<std::size_t>(next - stops.begin()) + 1;
    progress_->piece(static_cast<double>(elementsBehind_), static_cast<double>(stop_->elements));
    elementsBehind_ += stop_->elements;
    // Nothing is heard of the exporter between the last stop of a grid and the next grid.
    if (nextStop_ == stops.size())
        progress_->say("writing " + grids().back().name);
}

void PcdWalk::finish(std::span<const ConvLib::WrittenFile> record) {
    leaveStop();
    RunRecorder::finish(record);
}

void PcdWalk::leaveStop() {
    if (stop_ == nullptr)
        return;
    const Stop& stop = *std::exchange(stop_, nullptr);
    if (stop.field != positionsName || stop.elements == 0)
        return;
    // The exporter has just used the array, so it is still in memory unless the host's limit is very low.
    auto data = stop.data->available();
    if (!data)
        data = stop.data->create(false);
    if (const auto points = Anchor::dynamicCast<Sheaf::TypedArray<PhysicalSpace::point>>(data))
        current_->grid.survey.look(points->base_vector());
}

} // namespace Tidewatch
