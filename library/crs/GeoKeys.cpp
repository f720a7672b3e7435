// SPDX-License-Identifier: Apache-2.0
#include "library/crs/GeoKeys.hpp"

#include "anchor/Error.hpp"
#include "formats/geotiff/geoKeys.hpp"
#include "formats/las/records.hpp"
#include "formats/littleEndian.hpp"
#include "readers/raster/geoKeySystem.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
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

std::span<const std::uint8_t> bytesOf(std::span<const Sheaf::FileRecord> records, std::uint16_t id) {
    const auto record = std::find_if(records.begin(), records.end(), [id](const Sheaf::FileRecord& one) {
        return one.userId == Formats::Las::projectionUser && one.recordId == id;
    });
    return record != records.end() ? std::span<const std::uint8_t>(record->bytes)
                                   : std::span<const std::uint8_t>();
}

/// GDAL's answer for keys: well-known text, or why there is none.
struct Answer {
    std::string text = {};
    std::string reason = {};
};

Answer ask(const GeoKeyBytes& keys) {
    if (!canReadGeoKeys())
        return {};
    try {
        return {systemOfGeoKeys(keys), {}};
    } catch (const Anchor::Error& error) {
        return {{}, error.what()};
    }
}

/// The same, cached: thousands of tiles may have the same keys, and each query takes a process.
const Answer& askOnce(const GeoKeyBytes& keys) {
    static auto* const known = new std::map<std::array<std::string, 3>, Answer>;
    static std::mutex mutex;
    const auto text = [](std::span<const std::uint8_t> bytes) {
        return std::string(bytes.begin(), bytes.end());
    };
    const std::lock_guard lock(mutex);
    const auto [entry, isNew] =
        known->try_emplace({text(keys.directory), text(keys.doubles), text(keys.texts)});
    if (isNew)
        entry->second = ask(keys);
    return entry->second;
}

/// The keys of a valid directory without those of vertical systems.
std::vector<std::uint8_t> withoutVertical(std::span<const std::uint8_t> directory) {
    constexpr std::size_t headSize = 2 * Tiff::headNumbers;
    constexpr std::size_t keySize = 2 * Tiff::keyNumbers;
    constexpr std::size_t countPlace = 6;
    std::vector<std::uint8_t> rest(directory.begin(), directory.begin() + headSize);
    const auto keys = Formats::loadLittleEndian<std::uint16_t>(directory.data() + countPlace);
    for (std::size_t i = 0; i < keys; ++i) {
        const auto key = directory.subspan(headSize + i * keySize, keySize);
        const auto id = Formats::loadLittleEndian<std::uint16_t>(key.data());
        if (id < Tiff::Key::firstVertical || id > Tiff::Key::lastVertical)
            rest.insert(rest.end(), key.begin(), key.end());
    }
    Formats::storeLittleEndian(rest.data() + countPlace,
                               static_cast<std::uint16_t>((rest.size() - headSize) / keySize));
    return rest;
}

class Reading {
public:
    Reading(GeoKeys& keys, std::map<std::uint16_t, std::uint16_t> values,
            std::span<const Sheaf::FileRecord> records)
        : keys_(keys),
          values_(std::move(values)),
          bytes_{bytesOf(records, Formats::Las::geoKeyDirectoryId),
                 bytesOf(records, Formats::Las::geoDoublesId), bytesOf(records, Formats::Las::geoTextsId)} {}

    void run() {
        findHorizontal();
        if (keys_.system)
            addVertical();
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
            return false;
        }
    }

    void findHorizontal() {
        const std::uint16_t projected = valueOf(Tiff::Key::projectedSystem);
        const std::uint16_t geodetic = valueOf(Tiff::Key::geodeticSystem);
        const bool isProjected =
            projected != Tiff::undefined || valueOf(Tiff::Key::model) == Tiff::Model::projected;
        const std::uint16_t code = isProjected ? projected : geodetic;
        if (code == Tiff::userDefined || (isProjected && code == Tiff::undefined)) {
            askForHorizontal(isProjected ? "a user-defined projection" : "a user-defined geodetic system");
            return;
        }
        if (code == Tiff::undefined) {
            if (valueOf(Tiff::Key::verticalSystem) != Tiff::undefined)
                keys_.unreadable = "a vertical system alone";
            else if (!values_.empty())
                keys_.unreadable = "keys that name no system";
            return;
        }
        horizontal_ = fmt::format("EPSG:{}", code);
        if (!find(horizontal_)) {
            askForHorizontal(horizontal_ + ", which PROJ does not know");
            return;
        }
        if (const std::uint16_t unit = valueOf(Tiff::Key::projectedUnit);
            isProjected && isOtherUnit(unit, keys_.system->unit()))
            askForHorizontal(fmt::format("{} in the unit EPSG:{}", horizontal_, unit));
    }

    /// The system in GDAL's answer; nothing if GDAL has made up parts of it.
    [[nodiscard]] static std::optional<ReferenceSystem> systemOf(const Answer& answer) {
        const bool isMadeUp = answer.text.find("unretrievable") != std::string::npos;
        if (answer.text.empty() || isMadeUp)
            return std::nullopt;
        try {
            ReferenceSystem system = ReferenceSystem::fromText(answer.text);
            const bool saysNothing = system.kind() == Kind::Local || system.kind() == Kind::Other;
            return saysNothing ? std::nullopt : std::optional(std::move(system));
        } catch (const Anchor::FormatError&) {
            return std::nullopt;
        }
    }

    /// For what codes do not express.
    void askForHorizontal(const std::string& what) {
        horizontal_.clear();
        const std::vector<std::uint8_t> directory = withoutVertical(bytes_.directory);
        const GeoKeyBytes question{directory, bytes_.doubles, bytes_.texts};
        const Answer& answer = askOnce(question);
        keys_.system = systemOf(answer);
        if (!keys_.system)
            keys_.unreadable = what + (answer.reason.empty() ? "" : " (" + answer.reason + ")");
    }

    /// Finds the compound with the vertical system of a code; returns whether it exists, and sets its unit.
    [[nodiscard]] bool findCompound(const ReferenceSystem& alone, unsigned vertical,
                                    std::optional<unsigned>& unit) {
        if (!horizontal_.empty()) {
            if (!find(fmt::format("{}+{}", horizontal_, vertical)))
                return false;
            unit = keys_.system->verticalUnit();
            return true;
        }
        try {
            const auto height = ReferenceSystem::fromCode(fmt::format("EPSG:{}", vertical));
            const auto below = alone.isoText();
            const auto above = height.isoText();
            if (!below || !above)
                return false;
            std::string name = fmt::format("{} + {}", alone.name(), height.name());
            std::replace(name.begin(), name.end(), '"', '\'');
            keys_.system =
                ReferenceSystem::fromText(fmt::format("COMPOUNDCRS[\"{}\",{},{}]", name, *below, *above));
            unit = height.unit();
            return true;
        } catch (const Anchor::FormatError&) {
            return false;
        }
    }

    void addVertical() {
        const std::uint16_t stated = valueOf(Tiff::Key::verticalSystem);
        if (stated == Tiff::undefined)
            return;
        if (stated == Tiff::userDefined) {
            askForVertical();
            return;
        }
        const bool isDatum = stated >= Tiff::firstVerticalDatum && stated <= Tiff::lastVerticalDatum;
        unsigned code = isDatum ? stated + unsigned{Tiff::fromVerticalDatumToSystem} : stated;
        const std::uint16_t unit = valueOf(Tiff::Key::verticalUnit);
        // Surveys in feet commonly state the system in metres and the unit separately; NAVD88 has systems in
        // feet.
        constexpr unsigned navd88 = 5703;
        constexpr unsigned surveyFoot = 9003;
        constexpr unsigned foot = 9002;
        if (code == navd88 && unit == surveyFoot)
            code = 6360;
        else if (code == navd88 && unit == foot)
            code = 8228;
        ReferenceSystem alone = std::move(*keys_.system);
        std::optional<unsigned> ownUnit;
        if (!findCompound(alone, code, ownUnit)) {
            keys_.system = std::move(alone);
            keys_.unreadable = fmt::format("the vertical system {}", stated);
        } else if (isOtherUnit(unit, ownUnit)) {
            keys_.system = std::move(alone);
            keys_.unreadable = fmt::format("the vertical system {} in the unit EPSG:{}", stated, unit);
        }
    }

    /// A user-defined vertical system states little more than its name and unit; without these it is useless.
    void askForVertical() {
        const std::uint16_t unit = valueOf(Tiff::Key::verticalUnit);
        const std::string name = textOf(Tiff::Key::verticalCitation);
        Answer answer = !name.empty() && unit != Tiff::undefined && unit != Tiff::userDefined
                            ? askOnce({bytes_.directory, bytes_.doubles, bytes_.texts})
                            : Answer();
        // Some releases of GDAL leave out its name.
        for (const char* const before : {"VERTCRS[\"", " + "}) {
            const std::string unnamed = std::string(before) + "unknown\"";
            if (const std::size_t place = answer.text.find(unnamed); place != std::string::npos)
                answer.text.replace(place, unnamed.size(), before + name + '"');
        }
        auto whole = systemOf(answer);
        if (whole && whole->hasVertical())
            keys_.system = std::move(whole);
        else
            keys_.unreadable =
                "a user-defined vertical system" + (answer.reason.empty() ? "" : " (" + answer.reason + ")");
    }

    /// The text of a key, empty if it has none. Double quotes become single ones, so that it can be put into well-known text.
    [[nodiscard]] std::string textOf(std::uint16_t wanted) const {
        constexpr std::size_t headSize = 2 * Tiff::headNumbers;
        constexpr std::size_t keySize = 2 * Tiff::keyNumbers;
        for (std::size_t place = headSize; place + keySize <= bytes_.directory.size(); place += keySize) {
            const auto number = [&](std::size_t i) {
                return Formats::loadLittleEndian<std::uint16_t>(bytes_.directory.data() + place + 2 * i);
            };
            const std::size_t size = number(2);
            const std::size_t begin = number(3);
            if (number(0) != wanted || number(1) != Formats::Las::geoTextsId || begin > bytes_.texts.size() ||
                size > bytes_.texts.size() - begin)
                continue;
            std::string text(reinterpret_cast<const char*>(bytes_.texts.data()) + begin, size);
            // A bar ends a text, and some writers end it with a zero.
            text.resize(std::min(text.find_first_of(std::string_view("|\0", 2)), text.size()));
            std::replace(text.begin(), text.end(), '"', '\'');
            return text;
        }
        return {};
    }

    GeoKeys& keys_;
    std::map<std::uint16_t, std::uint16_t> values_;
    GeoKeyBytes bytes_;
    /// The code of the horizontal system; empty if it has none.
    std::string horizontal_;
};

} // namespace

GeoKeys GeoKeys::read(std::span<const Sheaf::FileRecord> records) {
    GeoKeys keys;
    const bool hasDirectory =
        std::any_of(records.begin(), records.end(), [](const Sheaf::FileRecord& record) {
            return record.userId == Formats::Las::projectionUser &&
                   record.recordId == Formats::Las::geoKeyDirectoryId;
        });
    if (!hasDirectory)
        return keys;
    auto values = parse(bytesOf(records, Formats::Las::geoKeyDirectoryId));
    keys.areThere = !values || !values->empty();
    if (values)
        Reading(keys, std::move(*values), records).run();
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

    // Three-dimensional systems were added in GeoTIFF 1.1.
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
