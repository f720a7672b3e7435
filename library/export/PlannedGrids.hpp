// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "geom/PhysicalSpace.hpp"
#include "library/export/ExportFormat.hpp"
#include "library/export/RunScope.hpp"
#include "sheaf/Grid.hpp"

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

namespace Tidewatch {

/// An exporter's plans for the grids of one run, with the coordinate steps of the inputs.
template <class Plan>
class PlannedGrids {
public:
    struct Grid {
        Plan plan;
        /// The step in which the input stores coordinates; nullopt if it stores them as floating-point numbers.
        std::optional<Geom::PhysicalSpace::vector> inputStep;
        /// Whether the grid is all that its file holds, as with LAS files and rasters.
        bool isSingleFile = false;
    };

    /// Makes a plan for every grid that the run will export. To be called before the run.
    PlannedGrids(const ExportFormat::Context& context, const RunScope& scope,
                 const std::function<Plan(const Sheaf::Grid&)>& planOf) {
        context.selection.forEachGrid(
            *scope.bundle, [&](double time, const std::string& name, const Sheaf::Grid& grid) {
                Grid planned{planOf(grid), std::nullopt};
                if (const auto report = context.inputs.reportOf(name, grid.origin())) {
                    planned.inputStep = report->coordinateStep();
                    planned.isSingleFile = true;
                }
                grids_.try_emplace({time, name}, std::move(planned));
            });
    }

    /// Null for a grid that was not among the inputs before the run.
    [[nodiscard]] const Grid* find(const ExportedGrid& exported) const {
        const auto found = grids_.find({exported.time, exported.name});
        return found != grids_.end() ? &found->second : nullptr;
    }

    /// Calls `visit` with the time, the name and the plan of each grid.
    template <class Visit>
    void forEach(Visit&& visit) const {
        for (const auto& [key, grid] : grids_)
            visit(key.first, key.second, grid.plan);
    }

    /// The fields that the exporter may read.
    [[nodiscard]] std::set<std::string> fieldsRead() const {
        std::set<std::string> fields;
        for (const auto& [key, grid] : grids_)
            fields.merge(grid.plan.fieldsRead());
        return fields;
    }

    /// The number of elements that the exporter will use, for the progress.
    [[nodiscard]] double elements() const {
        double sum = 0;
        for (const auto& [key, grid] : grids_)
            sum += static_cast<double>(grid.plan.elements());
        return sum;
    }

private:
    std::map<std::pair<double, std::string>, Grid> grids_;
};

} // namespace Tidewatch
