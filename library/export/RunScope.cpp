// SPDX-License-Identifier: Apache-2.0
#include "library/export/RunScope.hpp"

#include "anchor/Error.hpp"
#include "library/report/UsageError.hpp"
#include "library/report/Wording.hpp"

#include <filesystem>
#include <map>
#include <set>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

std::string described(const RunScope& scope) {
    if (scope.grid && scope.time)
        return gridAtTime(*scope.grid, *scope.time);
    return scope.grid ? fmt::format("grid \"{}\"", *scope.grid) : "time " + shortestText(*scope.time);
}

} // namespace

std::vector<RunScope> planRuns(const OutputPattern& pattern, const Selection& selection,
                               const Inputs& inputs) {
    if (!pattern.isPerGrid() && !pattern.isPerTime() && !pattern.isPerTile())
        return {{std::nullopt, std::nullopt, pattern.text()}};
    std::vector<RunScope> runs;
    std::set<std::pair<std::optional<double>, std::optional<std::string>>> known;
    std::map<std::filesystem::path, std::size_t> runOf;
    selection.forEachGrid(*inputs.bundle(), [&](double time, const std::string& grid, const Sheaf::Grid&) {
        RunScope scope;
        if (pattern.isPerTime())
            scope.time = time;
        if (pattern.isPerGrid() || pattern.isPerTile())
            scope.grid = grid;
        if (!known.emplace(scope.time, scope.grid).second)
            return;
        const TiledPoints::Tile* const tile = inputs.tileOf(grid);
        if (pattern.isPerTile() && tile == nullptr)
            throw UsageError(fmt::format("{}: {} is not cut into squares, so {{tile}} has no name for it; "
                                         "--tile-size cuts points",
                                         pattern.text(), gridAtTime(grid, time)));
        scope.output =
            pattern.fill(inputs.inputGridOf(grid), time, tile != nullptr ? tile->name : std::string());
        const auto place = std::filesystem::absolute(scope.output).lexically_normal();
        if (const auto [entry, isNew] = runOf.try_emplace(place, runs.size()); !isNew)
            throw Anchor::FileError(fmt::format("{}: both {} and {} get this name", scope.output,
                                                described(runs[entry->second]), described(scope)));
        runs.push_back(std::move(scope));
    });
    return runs;
}

} // namespace Tidewatch
