// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"
#include "sheaf/FieldEncoding.hpp"
#include "sheaf/Grid.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <typeinfo>
#include <vector>

namespace ExportLib {

class ExportPointCloudToLas;

/// The settings of the LAS exporter that affect how a grid is exported.
struct TIDEWATCH_API LasSettings {
    /// The minor version: 2, 3 or 4.
    int version = 4;
    /// One file per fragment.
    bool tiles = false;
    /// Plain LAS files instead of LAZ.
    bool uncompressed = false;
    /// The point source ID of every point, if greater than 0.
    int pointSourceID = 0;
    /// From fields to attributes; an empty map stands for the exporter's default.
    std::map<std::string, std::string> renames;
    std::string outputPath;
    /// See the exporter's settings of these names.
    bool carry = false;
    bool conforming = false;
    std::optional<std::array<double, 3>> step = {};
    std::optional<std::array<double, 3>> offset = {};

    /// The settings of an exporter.
    [[nodiscard]] static LasSettings of(const ExportPointCloudToLas& exporter);

    /// Whether points have the wider attributes of LAS 1.4.
    [[nodiscard]] bool isExtended() const noexcept { return version == 4; }
    /// The largest return number that files of a version hold.
    [[nodiscard]] static constexpr unsigned returnLimit(bool isExtended) noexcept {
        return isExtended ? 15 : 7;
    }
};

/// Predicts how the LAS exporter exports a grid, before any array is created: from the names of fields, the
/// element types and extents that creators state, and arrays in memory.
///
/// A plan holds the creators of the arrays and changes nothing in the grid.
struct TIDEWATCH_API LasPlan {
    /// A field whose values become an attribute of the points of one fragment.
    struct Capture {
        std::string attribute;
        std::string field;
        Sheaf::Field::Creator data;
    };

    /// A number in the extra bytes of records, beside the attributes: a field's values, or those of one of
    /// its components.
    struct ExtraBytes {
        std::string field;
        /// From 0.
        std::size_t component = 0;
        /// Its name is the one in the file.
        Sheaf::FieldEncoding encoding = {};
        /// Offset in the extra bytes of a record, and size, in bytes.
        std::size_t start = 0;
        std::size_t size = 0;
    };

    /// A record of the grid's statement that is not written.
    struct RecordLeftOut {
        std::string userId;
        std::uint16_t recordId = 0;
        std::string reason;
    };

    /// What a fragment of the positions contains.
    enum class Content {
        Points,
        Lattice,      ///< a uniform lattice, which the exporter skips
        KnownWhenRead ///< points, unless the array is a lattice
    };

    /// A fragment of the positions.
    struct Fragment {
        /// As in the names of tiles.
        std::string name;
        /// The path of the file that it goes to.
        std::string file;
        Content content = Content::KnownWhenRead;
        Sheaf::Field::Creator positions;
        /// How many points are written.
        std::uint64_t points = 0;
        /// In the order in which the exporter takes them; one for each attribute and element type.
        std::vector<Capture> captures;
        /// The data of each of the plan's extras; null where the fragment has none.
        std::vector<Sheaf::Field::Creator> extras = {};
        /// Why there are no positions among the captures, in which case the exporter skips the rest of the
        /// slice; empty if there are.
        std::string obstacle;
    };

    /// Why a field that is an attribute is not written.
    struct LeftOut {
        std::string reason;
        /// Whether LAS 1.4 has a place for it.
        bool latestVersionKeepsIt = false;
    };

    /// Why no file is written for the grid; empty if one is.
    std::string obstacle;
    /// In the order of the exporter.
    std::vector<Fragment> fragments;

    /// The point data format of the files (LAS 1.4 R15, "Point Data Record Formats").
    unsigned pointFormat = 0;
    /// What the records have room for.
    bool hasGpsTime = false;
    bool hasColors = false;
    bool hasReflectance = false;
    bool hasAmplitude = false;
    bool hasNearInfrared = false;
    /// In the order of the files.
    std::vector<ExtraBytes> extras = {};

    /// How many records of the grid's statement are written, and those that are not.
    std::size_t records = 0;
    std::vector<RecordLeftOut> recordsLeftOut = {};
    /// Notes for users on names in the files.
    std::vector<std::string> notes = {};

    /// Fields that are not attributes.
    std::set<std::string> unknownFields;
    /// Fields that are attributes but are not written.
    std::map<std::string, LeftOut> fieldsLeftOut;

    /// Points of all fragments.
    [[nodiscard]] std::uint64_t points() const noexcept;

    /// The fields whose arrays the exporter may request.
    [[nodiscard]] std::set<std::string> fieldsRead() const;

    /// `useField` is the exporter's question whether a field may be used.
    [[nodiscard]] static LasPlan of(const Sheaf::Grid& grid, const LasSettings& settings,
                                    const std::function<bool(const std::string&)>& useField);

    /// The attributes that fields can become; more if grids are carried.
    [[nodiscard]] static std::vector<std::string> attributes(bool carry = false);

    /// The element types that an attribute takes, the preferred one first; none for what is not an attribute.
    [[nodiscard]] static std::vector<const std::type_info*> elementTypes(const std::string& attribute,
                                                                         bool carry = false);
};

} // namespace ExportLib
