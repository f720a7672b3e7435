// SPDX-License-Identifier: Apache-2.0
#include "library/export/propertyLosses.hpp"

#include "formats/las/records.hpp"
#include "library/crs/gridSystem.hpp"
#include "library/report/Wording.hpp"

#include <algorithm>
#include <string>
#include <vector>

#include <fmt/format.h>

namespace Tidewatch {

Anchor::StrongPtr<Sheaf::Grid> findGrid(const Sheaf::Bundle& bundle, const ExportedGrid& exported) {
    const auto weakSlice = bundle.slices().find(exported.time);
    const auto slice = weakSlice != bundle.slices().end() ? weakSlice->second.lock() : nullptr;
    if (!slice)
        return nullptr;
    const auto grid = slice->grids().find(exported.name);
    return grid != slice->grids().end() ? grid->second.lock() : nullptr;
}

void addPropertyLosses(const ExportedGrid& exported, const Sheaf::Bundle& bundle, const KeptProperties& kept,
                       Losses& losses) {
    const auto grid = findGrid(bundle, exported);
    if (!grid)
        return;
    const Sheaf::FileStatement& statement = grid->statement();
    std::vector<std::string> lost;
    if (!kept.referenceSystem) {
        if (const GridSystem system = GridSystem::of(*grid); system.isThere())
            lost.push_back(fmt::format("coordinate reference system {}", system.title()));
    }
    if (!kept.gpsTimeEncoding && statement.gpsTime)
        lost.emplace_back(*statement.gpsTime == Sheaf::FileStatement::GpsTime::Adjusted
                              ? "GPS time encoding (adjusted standard time)"
                              : "GPS time encoding (seconds of the week)");
    const auto records = std::count_if(
        statement.records.begin(), statement.records.end(), [](const Sheaf::FileRecord& record) {
            return !Formats::Las::isOfReferenceSystem(record.userId, record.recordId);
        });
    if (!kept.records && records != 0)
        lost.push_back(counted(static_cast<std::uint64_t>(records), "record"));
    if (!kept.fileSourceId && statement.fileSourceId.value_or(0) != 0)
        lost.push_back(fmt::format("file source ID {}", *statement.fileSourceId));
    if (!lost.empty())
        losses.addOf(gridAtTime(exported.name, exported.time), "properties", "not carried: " + joined(lost));
}

} // namespace Tidewatch
