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
#include <vector>

namespace ExportLib {

class ExportPointCloudToLas;

/// The settings of the LAS exporter that decide what becomes of a grid.
struct TIDEWATCH_API LasSettings {
    /// The minor version: 2, 3 or 4.
    int version = 4;
    /// One file a fragment.
    bool tiles = false;
    /// Plain LAS files instead of LAZ.
    bool uncompressed = false;
    /// Given to every point where it is greater than 0.
    int pointSourceID = 0;
    /// From fields to attributes; an empty map stands for the exporter's default.
    std::map<std::string, std::string> renames;
    std::string outputPath;
    /// See the exporter's settings of these names.
    bool carry = false;
    bool conforming = false;
    std::optional<std::array<double, 3>> step = {};
    std::optional<std::array<double, 3>> offset = {};

    /// Those that an exporter has.
    [[nodiscard]] static LasSettings of(const ExportPointCloudToLas& exporter);

    /// Whether points have the wider attributes of LAS 1.4.
    [[nodiscard]] bool isExtended() const noexcept { return version == 4; }
    /// The largest return number that files of a version hold.
    [[nodiscard]] static constexpr unsigned returnLimit(bool isExtended) noexcept {
        return isExtended ? 15 : 7;
    }
};

/// What the LAS exporter makes of a grid, known before any array is made: it goes by the names of fields, by
/// the element types and extents that creators state, and by arrays that are in memory.
///
/// A plan holds the creators of the arrays and changes nothing in the grid.
struct TIDEWATCH_API LasPlan {
    /// A field whose values become an attribute of the points of one fragment.
    struct Capture {
        std::string attribute;
        std::string field;
        Sheaf::Field::Creator data;
    };

    /// A number that records carry in their extra bytes, beside the attributes: a field's values, or those of one of its
    /// components.
    struct ExtraBytes {
        std::string field;
        /// From 0.
        std::size_t component = 0;
        /// Its name is the one in the file.
        Sheaf::FieldEncoding encoding = {};
        /// Where it begins in the extra bytes of a record, and how many it has.
        std::size_t start = 0;
        std::size_t size = 0;
    };

    /// A record of the grid's statement that does not go into the files.
    struct RecordLeftOut {
        std::string userId;
        std::uint16_t recordId = 0;
        std::string reason;
    };

    /// What a fragment of the positions turns out to be.
    enum class Content {
        Points,
        Lattice,      ///< a uniform lattice, which the exporter passes by
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
        /// Why there are no positions among the captures, in which case the exporter leaves the slice here; empty
        /// where there are.
        std::string obstacle;
    };

    /// Why a field that is an attribute reaches no file.
    struct LeftOut {
        std::string reason;
        /// Whether LAS 1.4 has a place for it.
        bool latestVersionKeepsIt = false;
    };

    /// Why the grid becomes no file; empty where it becomes one.
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

    /// Records that headers get from the grid's statement, and those that they do not get.
    std::size_t records = 0;
    std::vector<RecordLeftOut> recordsLeftOut = {};
    /// What people may want to know of names in the files.
    std::vector<std::string> notes = {};

    /// Fields that are no attribute.
    std::set<std::string> unknownFields;
    /// Fields that are one and yet reach no file.
    std::map<std::string, LeftOut> fieldsLeftOut;

    /// Points of all fragments.
    [[nodiscard]] std::uint64_t points() const noexcept;

    /// The fields whose arrays the exporter may ask for.
    [[nodiscard]] std::set<std::string> fieldsRead() const;

    /// `useField` is the exporter's question whether a field may be used.
    [[nodiscard]] static LasPlan of(const Sheaf::Grid& grid, const LasSettings& settings,
                                    const std::function<bool(const std::string&)>& useField);

    /// The attributes that fields can become; more where grids are carried.
    [[nodiscard]] static std::vector<std::string> attributes(bool carry = false);
};

} // namespace ExportLib
