// SPDX-License-Identifier: Apache-2.0
#include "library/crs/GeoKeys.hpp"

#include "anchor/Error.hpp"
#include "formats/geotiff/geoKeys.hpp"
#include "formats/las/records.hpp"
#include "formats/littleEndian.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

namespace Tiff = Formats::GeoTiff;
using Kind = ReferenceSystem::Kind;

/// Keys with a value in the directory itself; nothing for a damaged directory.
std::optional<std::map<std::uint16_t, std::uint16_t>> parse(std::span<const std::uint8_t> bytes) {
    const auto number = [&](std::size_t place) {
        return Formats::loadLittleEndian<std::uint16_t>(bytes.data() + 2 * place);
    };
    const std::size_t numbers = bytes.size() / 2;
    if (numbers < Tiff::headNumbers || number(0) != Tiff::directoryVersion)
        return std::nullopt;
    const std::size_t keys = number(3);
    if (Tiff::headNumbers + keys * Tiff::keyNumbers > numbers)
        return std::nullopt;
    std::map<std::uint16_t, std::uint16_t> values;
    for (std::size_t i = 0; i < keys; ++i) {
        const std::size_t place = Tiff::headNumbers + i * Tiff::keyNumbers;
        if (number(place + 1) == Tiff::inPlace)
            values.emplace(number(place), number(place + 3));
    }
    return values;
}

class Reading {
public:
    Reading(GeoKeys& keys, std::map<std::uint16_t, std::uint16_t> values)
        : keys_(keys),
          values_(std::move(values)) {}

    void run() {
        const std::uint16_t projected = valueOf(Tiff::Key::projectedSystem);
        const std::uint16_t geodetic = valueOf(Tiff::Key::geodeticSystem);
        const bool isProjected =
            projected != Tiff::undefined || valueOf(Tiff::Key::model) == Tiff::Model::projected;
        const std::uint16_t code = isProjected ? projected : geodetic;
        if (code == Tiff::userDefined || (isProjected && code == Tiff::undefined)) {
            keys_.unreadable = isProjected ? "a user-defined projection" : "a user-defined geodetic system";
            return;
        }
        if (code == Tiff::undefined) {
            if (valueOf(Tiff::Key::verticalSystem) != Tiff::undefined)
                keys_.unreadable = "a vertical system alone";
            else if (!values_.empty())
                keys_.unreadable = "keys that name no system";
            return;
        }
        const std::string horizontal = fmt::format("EPSG:{}", code);
        if (!find(horizontal))
            return;
        if (const std::uint16_t unit = valueOf(Tiff::Key::projectedUnit);
            isProjected && isOtherUnit(unit, keys_.system->unit())) {
            keys_.unreadable = fmt::format("{} in the unit EPSG:{}", horizontal, unit);
            keys_.system.reset();
            return;
        }
        addVertical(horizontal);
    }

private:
    [[nodiscard]] std::uint16_t valueOf(std::uint16_t key) const {
        const auto found = values_.find(key);
        return found != values_.end() ? found->second : Tiff::undefined;
    }

    [[nodiscard]] static bool isOtherUnit(std::uint16_t stated, std::optional<unsigned> unit) {
        return stated != Tiff::undefined && unit && *unit != stated;
    }

    bool find(const std::string& code) {
        try {
            keys_.system = ReferenceSystem::fromCode(code);
            return true;
        } catch (const Anchor::FormatError&) {
            keys_.unreadable = code + ", which PROJ does not know";
            return false;
        }
    }

    void addVertical(const std::string& horizontal) {
        const std::uint16_t stated = valueOf(Tiff::Key::verticalSystem);
        if (stated == Tiff::undefined)
            return;
        if (stated == Tiff::userDefined) {
            keys_.unreadable = "a user-defined vertical system";
            return;
        }
        const bool isDatum = stated >= Tiff::firstVerticalDatum && stated <= Tiff::lastVerticalDatum;
        unsigned code = isDatum ? stated + unsigned{Tiff::fromVerticalDatumToSystem} : stated;
        const std::uint16_t unit = valueOf(Tiff::Key::verticalUnit);
        // Surveys in feet commonly name the system in metres and the unit beside it; it has systems of its own.
        constexpr unsigned navd88 = 5703;
        constexpr unsigned surveyFoot = 9003;
        constexpr unsigned foot = 9002;
        if (code == navd88 && unit == surveyFoot)
            code = 6360;
        else if (code == navd88 && unit == foot)
            code = 8228;
        ReferenceSystem alone = std::move(*keys_.system);
        if (!find(fmt::format("{}+{}", horizontal, code))) {
            keys_.system = std::move(alone);
            keys_.unreadable = fmt::format("the vertical system {}", stated);
        } else if (isOtherUnit(unit, keys_.system->verticalUnit())) {
            keys_.system = std::move(alone);
            keys_.unreadable = fmt::format("the vertical system {} in the unit EPSG:{}", stated, unit);
        }
    }

    GeoKeys& keys_;
    std::map<std::uint16_t, std::uint16_t> values_;
};

} // namespace

GeoKeys GeoKeys::read(std::span<const Sheaf::FileRecord> records) {
    GeoKeys keys;
    const auto directory = std::find_if(records.begin(), records.end(), [](const Sheaf::FileRecord& record) {
        return record.userId == Formats::Las::projectionUser &&
               record.recordId == Formats::Las::geoKeyDirectoryId;
    });
    if (directory == records.end())
        return keys;
    auto values = parse(directory->bytes);
    keys.areThere = !values || !values->empty();
    if (values)
        Reading(keys, std::move(*values)).run();
    else
        keys.unreadable = "a damaged directory";
    return keys;
}

std::optional<Sheaf::FileRecord> GeoKeys::write(const ReferenceSystem& system) {
    const auto code = system.code();
    const auto vertical = system.verticalCode();
    const auto isKeyCode = [](unsigned number) {
        return number >= Tiff::firstEpsgCode && number < Tiff::userDefined;
    };
    if (!code || !isKeyCode(*code) || (system.hasVertical() && (!vertical || !isKeyCode(*vertical))))
        return std::nullopt;
    const Kind kind = system.kind();
    std::map<std::uint16_t, std::uint16_t> values;
    if (kind == Kind::Projected)
        values = {{Tiff::Key::model, Tiff::Model::projected}, {Tiff::Key::projectedSystem, *code}};
    else if (kind == Kind::Geographic || kind == Kind::Geographic3D)
        values = {{Tiff::Key::model, Tiff::Model::geographic}, {Tiff::Key::geodeticSystem, *code}};
    else if (kind == Kind::Geocentric)
        values = {{Tiff::Key::model, Tiff::Model::geocentric}, {Tiff::Key::geodeticSystem, *code}};
    else
        return std::nullopt;
    values[Tiff::Key::raster] = Tiff::pixelIsArea;
    if (vertical)
        values[Tiff::Key::verticalSystem] = static_cast<std::uint16_t>(*vertical);

    // Systems of three dimensions came with GeoTIFF 1.1.
    const std::uint16_t minorRevision = kind == Kind::Geographic3D ? 1 : 0;
    Sheaf::FileRecord record{
        std::string(Formats::Las::projectionUser), Formats::Las::geoKeyDirectoryId, "GeoTIFF keys", {}};
    const auto put = [&](std::uint16_t number) {
        record.bytes.resize(record.bytes.size() + 2);
        Formats::storeLittleEndian(record.bytes.data() + record.bytes.size() - 2, number);
    };
    for (const std::uint16_t number :
         {Tiff::directoryVersion, Tiff::revision, minorRevision, static_cast<std::uint16_t>(values.size())})
        put(number);
    for (const auto& [key, value] : values) {
        for (const std::uint16_t number : {key, Tiff::inPlace, std::uint16_t{1}, value})
            put(number);
    }
    return record;
}

} // namespace Tidewatch
