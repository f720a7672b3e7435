// SPDX-License-Identifier: Apache-2.0
#include "library/export/RunScope.hpp"

#include "anchor/Error.hpp"
#include "library/report/Wording.hpp"

#include <algorithm>
#include <filesystem>
#include <map>

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
                               const Sheaf::Bundle& bundle) {
    if (!pattern.isPerGrid() && !pattern.isPerTime())
        return {{std::nullopt, std::nullopt, pattern.text()}};
    std::vector<RunScope> runs;
    std::map<std::filesystem::path, std::size_t> runOf;
    selection.forEachGrid(bundle, [&](double time, const std::string& grid, const Sheaf::Grid&) {
        RunScope scope;
        if (pattern.isPerTime())
            scope.time = time;
        if (pattern.isPerGrid())
            scope.grid = grid;
        const bool isKnown = std::any_of(runs.begin(), runs.end(), [&](const RunScope& other) {
            return other.time == scope.time && other.grid == scope.grid;
        });
        if (isKnown)
            return;
        scope.output = pattern.fill(grid, time);
        const auto place = std::filesystem::absolute(scope.output).lexically_normal();
        if (const auto [entry, isNew] = runOf.try_emplace(place, runs.size()); !isNew)
            throw Anchor::FileError(fmt::format("{}: both {} and {} get this name", scope.output,
                                                described(runs[entry->second]), described(scope)));
        runs.push_back(std::move(scope));
    });
    return runs;
}

} // namespace Tidewatch
