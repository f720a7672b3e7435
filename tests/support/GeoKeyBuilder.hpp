// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sheaf/FileRecord.hpp"
#include "support/LasFileBuilder.hpp"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Support {

/// Puts the records of GeoTIFF keys of a LAS file together: the directory, and doubles and texts where there are any
/// (OGC GeoTIFF 1.1, annex B).
class GeoKeyBuilder {
public:
    GeoKeyBuilder& number(unsigned key, unsigned value) { return add(key, 0, 1, value); }
    GeoKeyBuilder& real(unsigned key, double value) {
        add(key, 34736, 1, doubles_.size() / sizeof(double));
        append(doubles_, value);
        return *this;
    }
    GeoKeyBuilder& text(unsigned key, const std::string& value) {
        add(key, 34737, value.size() + 1, texts_.size());
        texts_ += value + '|';
        return *this;
    }

    [[nodiscard]] std::vector<Sheaf::FileRecord> records() const {
        std::string directory;
        for (const std::size_t each : {std::size_t{1}, std::size_t{1}, std::size_t{0}, keys_.size()})
            append(directory, static_cast<std::uint16_t>(each));
        for (const auto& [key, rest] : keys_) {
            append(directory, static_cast<std::uint16_t>(key));
            directory += rest;
        }
        std::vector<Sheaf::FileRecord> list{record(34735, directory)};
        if (!doubles_.empty())
            list.push_back(record(34736, doubles_));
        if (!texts_.empty())
            list.push_back(record(34737, texts_ + '\0'));
        return list;
    }

    /// A projection of no register: transverse Mercator on ETRS89, in metres.
    [[nodiscard]] static GeoKeyBuilder ownProjection() {
        GeoKeyBuilder keys;
        keys.number(1024, 1).number(1025, 1).text(1026, "site grid").number(2048, 4258).number(3072, 32767);
        keys.text(3073, "site grid").number(3074, 32767).number(3075, 1).number(3076, 9001).real(3080, 9.25);
        keys.real(3081, 54.5).real(3082, 1000).real(3083, 2000).real(3092, 0.99995);
        return keys;
    }

    /// The same as well-known text.
    [[nodiscard]] static std::string ownProjectionText() {
        return "PROJCS[\"site grid\",GEOGCS[\"ETRS89\",DATUM[\"European_Terrestrial_Reference_System_1989\","
               "SPHEROID[\"GRS 1980\",6378137,298.257222101]],PRIMEM[\"Greenwich\",0],UNIT[\"degree\","
               "0.0174532925199433]],PROJECTION[\"Transverse_Mercator\"],PARAMETER[\"latitude_of_origin\",54.5],"
               "PARAMETER[\"central_meridian\",9.25],PARAMETER[\"scale_factor\",0.99995],PARAMETER["
               "\"false_easting\",1000],PARAMETER[\"false_northing\",2000],UNIT[\"metre\",1]]";
    }

private:
    GeoKeyBuilder& add(unsigned key, std::size_t place, std::size_t count, std::size_t value) {
        std::string rest;
        for (const std::size_t each : {place, count, value})
            append(rest, static_cast<std::uint16_t>(each));
        keys_[key] = rest;
        return *this;
    }

    static Sheaf::FileRecord record(std::uint16_t id, const std::string& bytes) {
        return {"LASF_Projection", id, "as it was", {bytes.begin(), bytes.end()}};
    }

    std::map<unsigned, std::string> keys_;
    std::string doubles_;
    std::string texts_;
};

} // namespace Support
