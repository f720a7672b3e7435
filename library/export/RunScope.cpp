// SPDX-License-Identifier: Apache-2.0
#include "library/export/RunScope.hpp"

#include "anchor/Error.hpp"
#include "library/report/UsageError.hpp"
#include "library/report/Wording.hpp"

#include <compare>
#include <cstddef>
#include <filesystem>
#include <map>
#include <optional>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

/// What tells the runs of a pattern from each other.
struct Key {
    std::optional<double> time;
    std::optional<std::string> grid;

    auto operator<=>(const Key&) const = default;

    [[nodiscard]] std::string described() const {
        if (grid && time)
            return gridAtTime(*grid, *time);
        return grid ? fmt::format("grid \"{}\"", *grid) : "time " + shortestText(*time);
    }
};

} // namespace

std::vector<RunScope> planRuns(const OutputPattern& pattern, const Selection& selection,
                               const Inputs& inputs) {
    if (!pattern.isPerGrid() && !pattern.isPerTime() && !pattern.isPerTile())
        return {{inputs.bundle(), pattern.text()}};
    std::vector<RunScope> runs;
    std::map<Key, std::size_t> runOfKey;
    std::map<std::filesystem::path, const Key*> keyOfPlace;
    const auto add = [&](double time, const Anchor::StrongPtr<Sheaf::Grid>& grid) {
        const std::string& name = grid->name();
        Key key;
        if (pattern.isPerTime())
            key.time = time;
        if (pattern.isPerGrid() || pattern.isPerTile())
            key.grid = name;
        const auto [entry, isNew] = runOfKey.try_emplace(std::move(key), runs.size());
        if (isNew) {
            const TiledPoints::Tile* const tile = inputs.tileOf(name);
            if (pattern.isPerTile() && tile == nullptr)
                throw UsageError(
                    fmt::format("{}: {} is not cut into squares, so {{tile}} has no name for it; "
                                "--tile-size cuts points",
                                pattern.text(), gridAtTime(name, time)));
            RunScope run{Anchor::makeStrong<Sheaf::Bundle>(),
                         pattern.fill(inputs.inputGridOf(name), time, tile ? tile->name : std::string())};
            const auto place = std::filesystem::absolute(run.output).lexically_normal();
            if (const auto [other, isFree] = keyOfPlace.try_emplace(place, &entry->first); !isFree)
                throw Anchor::FileError(fmt::format("{}: both {} and {} get this name", run.output,
                                                    other->second->described(), entry->first.described()));
            runs.push_back(std::move(run));
        }
        runs[entry->second].bundle->makeSlice(time)->addGrid(grid);
    };
    selection.forEachReference(*inputs.bundle(), add);
    return runs;
}

} // namespace Tidewatch
