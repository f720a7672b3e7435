// SPDX-License-Identifier: Apache-2.0
#include "library/crs/gridSystem.hpp"

#include "anchor/Error.hpp"
#include "anchor/printable.hpp"
#include "formats/las/layout.hpp"
#include "formats/las/records.hpp"
#include "library/crs/GeoKeys.hpp"
#include "library/report/UsageError.hpp"
#include "library/report/Wording.hpp"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

namespace fs = std::filesystem;
namespace Format = Formats::Las;
using Sheaf::FileRecord;

std::optional<ReferenceSystem> tryText(const std::string& text) {
    try {
        return ReferenceSystem::fromText(text);
    } catch (const Anchor::FormatError&) {
        return std::nullopt;
    }
}

void forEachGrid(const Sheaf::Bundle& bundle,
                 const std::function<void(double time, Sheaf::Grid& grid)>& visit) {
    for (const auto& [time, weakSlice] : bundle.slices()) {
        const auto slice = weakSlice.lock();
        if (!slice)
            continue;
        for (const auto& [name, weakGrid] : slice->grids()) {
            if (const auto grid = weakGrid.lock())
                visit(time, *grid);
        }
    }
}

std::string textOf(const FileRecord& record) {
    return {record.bytes.begin(), std::find(record.bytes.begin(), record.bytes.end(), std::uint8_t{0})};
}

bool isProjectionRecord(const FileRecord& record, std::uint16_t id) {
    return record.userId == Format::projectionUser && record.recordId == id;
}

bool isKeyRecord(const FileRecord& record) {
    return isProjectionRecord(record, Format::geoKeyDirectoryId) ||
           isProjectionRecord(record, Format::geoDoublesId) || isProjectionRecord(record, Format::geoTextsId);
}

/// Well-known text of OGC 01-009 if it can express the system, else of ISO 19162.
std::string bestText(const ReferenceSystem& system) {
    if (const auto text = system.ogcText())
        return *text;
    return system.isoText().value_or(std::string());
}

void addText(const GridSystem& grid, WrittenSystem& written) {
    std::string text = grid.text;
    if (grid.system) {
        text = bestText(*grid.system);
        if (!grid.system->ogcText())
            written.note =
                fmt::format("{} is stated as well-known text of ISO 19162, since the older kind, which LAS "
                            "asks for, cannot express it",
                            grid.title());
    } else {
        written.note =
            "the well-known text of the coordinate reference system is copied unchanged: PROJ cannot "
            "read it";
    }
    FileRecord record{
        std::string(Format::projectionUser), Format::wellKnownTextId, "OGC well-known text", {}};
    record.bytes.assign(text.begin(), text.end());
    record.bytes.push_back(0);
    if (record.bytes.size() > Format::Record::largestPayload) {
        written.loss = fmt::format("{}: its well-known text has {} bytes, and a record has room for {}",
                                   grid.title(), text.size(), Format::Record::largestPayload);
        return;
    }
    written.additions.records.push_back(std::move(record));
}

void addTextRecords(const Sheaf::Grid& grid, const GridSystem& known, WrittenSystem& written) {
    const auto& records = grid.statement().records;
    const auto own = std::find_if(records.begin(), records.end(), [&](const FileRecord& record) {
        if (!isProjectionRecord(record, Format::wellKnownTextId))
            return false;
        const std::string text = textOf(record);
        if (text == known.text)
            return true;
        const auto system = tryText(text);
        return system && known.system && system->isEquivalentTo(*known.system);
    });
    if (own == records.end()) {
        addText(known, written);
    } else {
        for (const FileRecord& record : records) {
            if (&record == &*own || isProjectionRecord(record, Format::mathTransformId))
                written.additions.records.push_back(record);
        }
    }
    if (!written.additions.records.empty())
        written.additions.headerBits |= Format::GlobalEncoding::wellKnownText;
}

void addKeyRecords(const Sheaf::Grid& grid, const GridSystem& known, WrittenSystem& written, int version) {
    const auto& records = grid.statement().records;
    const GeoKeys keys = GeoKeys::read(records);
    const bool isSame = known.text.empty()
                            ? !keys.unreadable.empty()
                            : keys.system && known.system && keys.system->isEquivalentTo(*known.system);
    if (keys.areThere && isSame) {
        std::copy_if(records.begin(), records.end(), std::back_inserter(written.additions.records),
                     isKeyRecord);
        return;
    }
    if (known.system) {
        if (auto record = GeoKeys::write(*known.system)) {
            written.additions.records.push_back(std::move(*record));
            return;
        }
    }
    written.loss = fmt::format(
        "{}: LAS 1.{} states systems by GeoTIFF keys, which are written for systems with codes of "
        "the EPSG register; --las-version 1.4 keeps it",
        known.title(), version);
}

} // namespace

std::string GridSystem::title() const {
    if (system)
        return Anchor::printable(system->title());
    return text.empty() ? "GeoTIFF keys (" + unreadable + ")" : "a system that PROJ cannot read";
}

GridSystem GridSystem::of(const Sheaf::Grid& grid) {
    GridSystem known;
    const auto chart = grid.findChart("");
    known.text = chart ? chart->referenceSystem() : std::string();
    if (!known.text.empty())
        known.system = tryText(known.text);
    const bool hasText = std::any_of(
        grid.statement().records.begin(), grid.statement().records.end(),
        [](const FileRecord& record) { return isProjectionRecord(record, Format::wellKnownTextId); });
    if (hasText && !known.text.empty())
        return known;
    GeoKeys keys = GeoKeys::read(grid.statement().records);
    known.unreadable = std::move(keys.unreadable);
    if (known.text.empty() && keys.system) {
        known.text = bestText(*keys.system);
        known.system = std::move(keys.system);
    }
    return known;
}

void completeSystems(Sheaf::Bundle& bundle) {
    // Thousands of tiles may have the same keys.
    std::map<std::vector<std::vector<std::uint8_t>>, std::string> known;
    forEachGrid(bundle, [&](double, Sheaf::Grid& grid) {
        const auto chart = grid.findChart("");
        const auto& records = grid.statement().records;
        const bool hasKeys = std::any_of(records.begin(), records.end(), [](const FileRecord& record) {
            return isProjectionRecord(record, Format::geoKeyDirectoryId);
        });
        if (!chart || !chart->referenceSystem().empty() || !hasKeys)
            return;
        std::vector<std::vector<std::uint8_t>> keys;
        for (const std::uint16_t id : {Format::geoKeyDirectoryId, Format::geoDoublesId, Format::geoTextsId}) {
            const auto record = std::find_if(records.begin(), records.end(), [id](const FileRecord& one) {
                return isProjectionRecord(one, id);
            });
            keys.push_back(record != records.end() ? record->bytes : std::vector<std::uint8_t>());
        }
        const auto [entry, isNew] = known.try_emplace(std::move(keys));
        if (isNew)
            entry->second = GridSystem::of(grid).text;
        chart->setReferenceSystem(entry->second);
    });
}

WantedSystem wantedSystem(const std::string& text) {
    if (text == "none")
        return {};
    std::error_code error;
    try {
        if (!fs::is_regular_file(text, error))
            return {bestText(ReferenceSystem::fromCode(text))};
        std::ifstream file(text, std::ios::binary);
        const std::string content{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        static_cast<void>(ReferenceSystem::fromText(content));
        return {content.substr(0, content.find_last_not_of(" \t\r\n") + 1)};
    } catch (const Anchor::FormatError& fault) {
        throw UsageError(
            fmt::format("--crs takes codes (EPSG:25832+5783), a file of well-known text, or none: {}{}",
                        fs::is_regular_file(text, error) ? text + ": " : std::string(), fault.what()));
    }
}

void setSystem(Sheaf::Grid& grid, const WantedSystem& wanted) {
    for (const std::string& name : grid.chartNames())
        grid.findChart(name)->setReferenceSystem(wanted.text);
    Sheaf::FileStatement statement = grid.statement();
    std::erase_if(statement.records, [](const FileRecord& record) {
        return Format::isOfReferenceSystem(record.userId, record.recordId);
    });
    grid.setStatement(std::move(statement));
}

std::vector<std::string> setSystem(Sheaf::Bundle& bundle, const WantedSystem& wanted) {
    const auto system = wanted.text.empty() ? std::nullopt : tryText(wanted.text);
    std::vector<std::string> notes;
    forEachGrid(bundle, [&](double time, Sheaf::Grid& grid) {
        const GridSystem before = GridSystem::of(grid);
        const bool isSame =
            before.system && system && before.unreadable.empty() && before.system->isEquivalentTo(*system);
        if (before.isThere() && !isSame)
            notes.push_back(fmt::format("{}: --crs {} {}; coordinates stay as they are",
                                        gridAtTime(grid.name(), time), system ? "replaces" : "removes",
                                        before.title()));
        if (isSame)
            return;
        setSystem(grid, wanted);
    });
    return notes;
}

WrittenSystem systemForLas(const Sheaf::Grid& grid, int version) {
    WrittenSystem written;
    const GridSystem known = GridSystem::of(grid);
    if (!known.isThere())
        return written;
    if (version != 4)
        addKeyRecords(grid, known, written, version);
    else if (!known.text.empty())
        addTextRecords(grid, known, written);
    if (version == 4 && !known.unreadable.empty())
        written.loss =
            fmt::format("what GeoTIFF keys state is not read: {}; LAS 1.4 takes well-known text (--crs gives "
                        "it)",
                        known.unreadable);
    return written;
}

WrittenSystem systemForPrj(const Sheaf::Grid& grid) {
    WrittenSystem written;
    const GridSystem known = GridSystem::of(grid);
    if (!known.isThere())
        return written;
    const auto text = known.system ? known.system->esriText() : std::nullopt;
    if (text)
        written.additions.prj = *text + "\n";
    else
        written.loss = known.title() + ": ESRI's well-known text cannot express it";
    return written;
}

} // namespace Tidewatch
