// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/InputReport.hpp"
#include "geom/PhysicalSpace.hpp"
#include "library/info/GridStatistics.hpp"
#include "sheaf/Bundle.hpp"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Tidewatch {

/// The contents of a bundle and of its input files, as plain values for display.
struct TIDEWATCH_API Inventory {
    struct Box {
        Geom::PhysicalSpace::point lower;
        Geom::PhysicalSpace::point upper;
    };
    struct Input {
        std::string file;
        std::string kind;
        std::vector<std::string> notCarried;
        std::optional<Geom::PhysicalSpace::vector> coordinateStep;
        /// What the file states of itself.
        std::vector<ConvLib::InputReport::Fact> facts = {};
        /// Of all its grids.
        std::uint64_t points = 0;
        /// Around all its grids, as far as their boxes are known, else as the file states it.
        std::optional<Box> box = {};
        /// The times of its grids, ascending.
        std::vector<double> times = {};
        /// The coordinate reference systems of its grids, for people: code or name. Empty where there is none.
        std::vector<std::string> systems = {};
    };
    struct Field {
        std::string name;
        std::string elementType;
        std::uint64_t fragments = 0;
        std::uint64_t elements = 0;
        /// The extents (x first) if the field is a single array with two or more axes.
        std::vector<std::uint64_t> extents;
    };
    struct Representation {
        /// The chart's name; empty for a representation relative to another skeleton.
        std::string chart;
        std::vector<Field> fields;
    };
    struct Skeleton {
        int dimension = 0;
        std::vector<std::int32_t> refinement;
        bool isExcluded = false;
        /// Positions in the default chart.
        std::uint64_t points = 0;
        std::vector<Representation> representations;
    };
    struct Grid {
        std::string name;
        std::string origin;
        /// Points of the vertices that exporters use by default: the highest homogeneous refinement.
        std::uint64_t points = 0;
        std::uint64_t fragments = 0;
        std::vector<Skeleton> skeletons;
        /// The coordinate reference system: its name, and its code ("EPSG:25832+5783") where it has one. Both are
        /// empty if there is none.
        std::string systemName;
        std::string systemCode;
        /// What of it cannot be read, for people; empty for nothing.
        std::string systemUnreadable;
        /// The box of all positions, if it is known.
        std::optional<Box> bounds;
        /// Only where they were asked for.
        std::optional<GridStatistics> statistics;
    };
    struct Slice {
        double time = 0;
        std::vector<Grid> grids;
    };

    std::vector<Input> inputs;
    std::vector<Slice> slices;
    /// What is wrong with grids that could not be read when they had to be, a text each.
    std::vector<std::string> failures = {};

    [[nodiscard]] std::uint64_t grids() const;
    [[nodiscard]] std::uint64_t points() const;

    /// Makes the inventory. With `readPositions` positions are read if their box is not known, which may take
    /// as long as reading the files; otherwise nothing is read. Throws what creators throw that is no Anchor::Error.
    [[nodiscard]] static Inventory of(const Sheaf::Bundle& bundle,
                                      std::span<const Anchor::StrongPtr<ConvLib::InputReport>> reports,
                                      bool readPositions);

    /// Adds statistics to the grids of an inventory of this bundle, which takes as long as reading all of them. Grids that
    /// cannot be read get none. `progress` may be null. Throws what it throws.
    void addStatistics(const Sheaf::Bundle& bundle, const Anchor::StrongPtr<Progress>& progress = {});
};

} // namespace Tidewatch
