// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/las/LasSettings.hpp"
#include "sheaf/Grid.hpp"

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace Tidewatch {

/// What the LAS exporter makes of the fields of a grid, known from their names and element types before any
/// array is made.
struct LasMapping {
    /// A field whose values become an attribute of the points of one fragment.
    struct Capture {
        std::string attribute;
        std::string field;
        Sheaf::Field::Creator data;
    };

    /// A fragment of the positions, which may still turn out to be a lattice and no points.
    struct Fragment {
        /// The name by which its tile is called.
        std::string name;
        Sheaf::Field::Creator positions;
        /// How many points the exporter writes.
        std::uint64_t points = 0;
        /// In the order in which the exporter takes them; one for each attribute and element type.
        std::vector<Capture> captures;
        /// Why there are no positions among the captures; empty where there are.
        std::string obstacle;
    };

    /// Why the grid becomes no file; empty where it becomes one.
    std::string obstacle;
    /// In the order of the exporter.
    std::vector<Fragment> fragments;

    /// What the records have room for; the names of fields alone decide.
    bool hasColors = false;
    bool hasReflectance = false;
    bool hasAmplitude = false;

    /// Fields that are no attribute.
    std::set<std::string> unknownFields;
    /// Fields that are one and yet reach no file, with the reason.
    std::map<std::string, std::string> fieldsLeftOut;

    /// Points of all fragments.
    [[nodiscard]] std::uint64_t points() const noexcept;
    /// Whether records have a GPS time.
    [[nodiscard]] bool hasGpsTime(const LasSettings& settings) const noexcept {
        return settings.isExtended() || !hasColors;
    }
    /// The point data format of the files.
    [[nodiscard]] unsigned pointFormat(const LasSettings& settings) const noexcept {
        return (settings.isExtended() ? 6U : 1U) + (hasColors ? 1U : 0U);
    }

    /// `useField` is the exporter's question whether a field may be used.
    [[nodiscard]] static LasMapping of(const Sheaf::Grid& grid, const LasSettings& settings,
                                       const std::function<bool(const std::string&)>& useField);

    /// The fragments of the grid's positions by the names of their tiles, in the order of the exporter; none
    /// where it passes the grid by.
    [[nodiscard]] static std::vector<std::string> tileNames(const Sheaf::Grid& grid);
};

/// Whether the exporter knows an attribute of that name.
[[nodiscard]] bool isLasAttribute(const std::string& name);

/// The attributes that the exporter knows, those of its default names first.
[[nodiscard]] std::vector<std::string> lasAttributes();

} // namespace Tidewatch
