// SPDX-License-Identifier: Apache-2.0
#include "library/points/mergedStatement.hpp"

#include "anchor/Error.hpp"
#include "anchor/printable.hpp"
#include "formats/las/records.hpp"
#include "library/crs/gridSystem.hpp"
#include "library/report/Wording.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

using Sheaf::FileStatement;

bool isOfSystem(const Sheaf::FileRecord& record) {
    return Formats::Las::isOfReferenceSystem(record.userId, record.recordId);
}

/// The member of all statements if it is the same in all, else nothing.
template <class Member>
auto common(std::span<const MergePart> parts, Member FileStatement::*member) {
    const Member& first = parts.front().grid->statement().*member;
    const bool isCommon = std::all_of(parts.begin(), parts.end(), [&](const MergePart& part) {
        return part.grid->statement().*member == first;
    });
    return isCommon ? first : Member();
}

void mergeSteps(std::span<const MergePart> parts, FileStatement& merged) {
    for (const MergePart& part : parts) {
        const FileStatement& statement = part.grid->statement();
        if (!statement.step || !statement.offset) {
            merged.step.reset();
            merged.offset.reset();
            return;
        }
        if (!merged.step) {
            merged.step = statement.step;
            merged.offset = statement.offset;
        }
        for (std::size_t axis = 0; axis < merged.step->size(); ++axis)
            (*merged.step)[axis] = std::min((*merged.step)[axis], (*statement.step)[axis]);
    }
}

bool hasGpsTimes(const Sheaf::Grid& grid) {
    bool has = false;
    grid.skeletons().iterate_all([&](const Sheaf::FieldFragment& item) {
        has = item.id.name() == "GPSTime";
        return !has;
    });
    return has;
}

void mergeGpsTimes(std::span<const MergePart> parts, FileStatement& merged) {
    const MergePart* first = nullptr;
    for (const MergePart& part : parts) {
        const auto& encoding = part.grid->statement().gpsTime;
        if (!encoding || !hasGpsTimes(*part.grid))
            continue;
        if (first == nullptr) {
            first = &part;
            merged.gpsTime = encoding;
        } else if (merged.gpsTime != encoding) {
            const auto words = [](FileStatement::GpsTime time) {
                return time == FileStatement::GpsTime::Adjusted ? "adjusted standard time"
                                                                : "seconds of the week";
            };
            throw Anchor::ModelError(
                fmt::format("{} counts GPS time in {} and {} in {}; merged, they would not be "
                            "comparable",
                            first->file, words(*merged.gpsTime), part.file, words(*encoding)));
        }
    }
    if (first == nullptr)
        merged.gpsTime = common(parts, &FileStatement::gpsTime);
}

void mergeRecords(std::span<const MergePart> parts, FileStatement& merged, std::vector<std::string>& notes) {
    std::map<std::pair<std::string, std::uint16_t>, std::set<std::string>> differing;
    for (const MergePart& part : parts) {
        // A file may have several of one kind.
        const std::size_t before = merged.records.size();
        for (const Sheaf::FileRecord& record : part.grid->statement().records) {
            const auto earlier = merged.records.begin() + static_cast<std::ptrdiff_t>(before);
            if (isOfSystem(record) || std::find(merged.records.begin(), earlier, record) != earlier)
                continue;
            const bool isTaken =
                std::any_of(merged.records.begin(), earlier, [&](const Sheaf::FileRecord& other) {
                    return other.userId == record.userId && other.recordId == record.recordId;
                });
            if (isTaken)
                differing[{record.userId, record.recordId}].insert(part.file);
            else
                merged.records.push_back(record);
        }
    }
    for (const auto& [key, files] : differing)
        notes.push_back(fmt::format("record {}/{} is taken from the first input that has it; {} {} another",
                                    Anchor::printable(key.first), key.second,
                                    listed({files.begin(), files.end()}),
                                    files.size() == 1 ? "has" : "have"));
}

/// Whether two grids have the same system; systems that cannot be read are compared by text and records.
bool isSameSystem(const Sheaf::Grid& a, const GridSystem& ofA, const Sheaf::Grid& b, const GridSystem& ofB) {
    if (ofA.system && ofB.system && ofA.unreadable.empty() && ofB.unreadable.empty())
        return ofA.system->isEquivalentTo(*ofB.system);
    const auto records = [](const Sheaf::Grid& grid) {
        std::vector<Sheaf::FileRecord> found;
        std::copy_if(grid.statement().records.begin(), grid.statement().records.end(),
                     std::back_inserter(found), isOfSystem);
        return found;
    };
    return ofA.text == ofB.text && records(a) == records(b);
}

} // namespace

FileStatement mergedStatement(std::span<const MergePart> parts, std::vector<std::string>& notes) {
    FileStatement merged;
    mergeSteps(parts, merged);
    mergeGpsTimes(parts, merged);
    merged.fileSourceId = common(parts, &FileStatement::fileSourceId);
    merged.systemIdentifier = common(parts, &FileStatement::systemIdentifier);
    mergeRecords(parts, merged, notes);
    return merged;
}

void mergeSystems(std::span<const MergePart> parts, Sheaf::Grid& to, std::vector<std::string>& notes) {
    const MergePart* first = nullptr;
    GridSystem known;
    std::set<std::string> checked; // texts that are the same system
    std::vector<std::string> without;
    for (const MergePart& part : parts) {
        const auto chart = part.grid->findChart({});
        const std::string text = chart ? chart->referenceSystem() : std::string();
        if (first != nullptr && !text.empty() && known.unreadable.empty() && checked.contains(text))
            continue;
        GridSystem system = GridSystem::of(*part.grid);
        if (!system.isThere()) {
            without.push_back(part.file);
        } else if (first == nullptr) {
            first = &part;
            known = std::move(system);
        } else if (!isSameSystem(*first->grid, known, *part.grid, system)) {
            throw Anchor::ModelError(
                fmt::format("{} is in {}, and {} in {}; merge files in one coordinate reference "
                            "system, or state it by --crs",
                            first->file, known.title(), part.file, system.title()));
        }
        if (!text.empty())
            checked.insert(text);
    }
    if (first == nullptr)
        return;
    if (!without.empty())
        notes.push_back(fmt::format("{} {} no coordinate reference system and {} those in {}",
                                    listed(without), without.size() == 1 ? "states" : "state",
                                    without.size() == 1 ? "joins" : "join", known.title()));
    to.declareCartesianChart(std::string(Sheaf::Grid::standardChart))->setReferenceSystem(known.text);
    FileStatement statement = to.statement();
    const auto& records = first->grid->statement().records;
    std::copy_if(records.begin(), records.end(), std::back_inserter(statement.records), isOfSystem);
    to.setStatement(std::move(statement));
}

} // namespace Tidewatch
