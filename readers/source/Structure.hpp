// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sheaf/FieldEncoding.hpp"
#include "sheaf/FileStatement.hpp"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Tidewatch {

/// The content of an input without its arrays: what a SourceModule finds in a file and fillBundle() makes
/// grids of. It may come from another process, so it is not trusted before fillBundle() has checked it.
struct Structure {
    /// An array of numbers, and what its source needs to find it.
    struct Array {
        /// Its place in the file: "/slices/t/...", "band 1".
        std::string object;
        /// The source's own number for it.
        std::uint64_t key = 0;
        /// The element type's name in Sheaf::ElementTypes.
        std::string element;
        /// x first.
        std::vector<std::uint64_t> extents;
    };

    /// Describes a uniform grid, whose points are not stored in the file.
    struct Lattice {
        std::array<double, 3> origin{};
        std::array<double, 3> spacing{};
    };

    struct Piece {
        /// Nothing for a field without fragments.
        std::optional<std::string> fragment;
        Array array;
        std::optional<Lattice> lattice;
    };

    struct Field {
        std::string name;
        std::string element;
        std::vector<Piece> pieces;
        /// Its type is one that extra bytes of LAS files have.
        std::optional<Sheaf::FieldEncoding> encoding = {};
    };

    struct Representation {
        std::string chart;
        std::vector<Field> fields;
    };

    struct Skeleton {
        std::string object;
        std::int32_t dimension = 0;
        std::vector<std::int32_t> refinement;
        std::int32_t exclusionMark = 0;
        std::vector<Representation> representations;
    };

    struct Fragment {
        std::string name;
        std::optional<std::array<std::uint64_t, 3>> overlapLow;
        std::optional<std::array<std::uint64_t, 3>> overlapHigh;
    };

    struct Chart {
        std::string name;
        /// As well-known text; empty if none is stated.
        std::string referenceSystem = {};
    };

    struct Grid {
        std::string name;
        std::vector<Chart> charts;
        std::vector<Fragment> fragments;
        std::vector<Skeleton> skeletons;
        Sheaf::FileStatement statement = {};
    };

    struct Slice {
        double time = 0;
        std::vector<Grid> grids;
    };

    /// For InputReport::kind: "bundle file".
    std::string kind;
    /// The file states neither times nor names of grids: its only grid is named after it, in the slice at
    /// ReadOptions::SliceTime.
    bool isSingleGrid = false;
    /// For InputReport::notCarried.
    std::vector<std::string> notCarried;
    std::vector<Slice> slices;

    /// The max bytes of all reference systems, statements and encodings of an input together, and the max
    /// records of a grid: real files have far less, and all of it goes from process to process in one
    /// message.
    static constexpr std::uint64_t mostPropertyBytes = std::uint64_t{128} << 20;
    static constexpr std::size_t mostRecords = 10'000;
};

/// What is wrong with a statement or an encoding, such as "has a step that is not above 0"; empty if nothing
/// is.
[[nodiscard]] std::string faultOf(const Sheaf::FileStatement& statement);
[[nodiscard]] std::string faultOf(const Sheaf::FieldEncoding& encoding);

/// The bytes of a statement that count towards Structure::mostPropertyBytes.
[[nodiscard]] std::uint64_t propertyBytes(const Sheaf::FileStatement& statement);

} // namespace Tidewatch
