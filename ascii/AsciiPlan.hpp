// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "sheaf/FragmentID.hpp"
#include "sheaf/Grid.hpp"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <typeinfo>
#include <vector>

namespace ExportLib {

/// The settings of ExportPointCloudToASCII that decide what goes where, under the names that they have there.
struct AsciiSettings {
    std::string filterField;
    int refinementLevel;
    unsigned int precision;
    bool append;
    bool tileSuffix;
};

/// What ExportPointCloudToASCII makes of a grid, told beforehand by the rules that its Run() goes by. Making a plan
/// changes nothing and makes no array.
struct TIDEWATCH_API AsciiPlan {
    /// Decimals of everything but the values of grids.
    static constexpr unsigned int coordinateDecimals = 6;

    enum class Form {
        None, ///< no file
        List, ///< elements as text, ".asc"
        Grid  ///< an ESRI ASCII grid, ".grd"
    };

    /// What is known of the cell types that a grid file needs.
    enum class CellTypes {
        Stated,    ///< there is an array, or none is needed
        NoField,   ///< the representation has no such field: the file stays empty
        NoFragment ///< the field has nothing for the fragment: the file stays empty
    };

    /// What the header of a grid file says of its lattice.
    struct Lattice {
        /// The distance of neighbours along x and y, in coordinate units.
        double spacingX = 0;
        double spacingY = 0;
        /// The value that the file has for both of them.
        double writtenCellSize = 0;
        /// Whether the spacing along y comes to the same number as the cell size.
        bool isSquareAsWritten = true;
        /// By how much a cell of the file lies off its place, the most along x or y, in coordinate units; 0 where that
        /// is within the noise of a double.
        double coordinateLoss = 0;
        /// By how many rows the values stand too far north: by those that the fragment shares with its southern
        /// neighbour.
        std::uint64_t rowShift = 0;
        /// Whether bytes become characters instead of numbers.
        bool asCharacters = false;
    };

    /// A fragment of a field at which the exporter stops.
    struct Fragment {
        std::string field;
        /// May be null.
        Anchor::StrongPtr<Sheaf::FragmentID> fragment;
        /// Whether the exporter takes its skeleton; what it does not take is counted in its progress and passed over.
        bool isSelected = false;
        /// Whether the input marks the skeleton as not to be exported.
        bool isExcluded = false;
        Form form = Form::None;
        /// Why a selected fragment gets no file, as text for messages. Empty if it gets one, and for positions that
        /// the header of a grid already states.
        std::string whyLeftOut;
        /// Where the file goes, relative to the output folder; empty without a file.
        std::filesystem::path file;
        /// Elements of the array, as far as it is known; 0 without a file.
        std::uint64_t elements = 0;
        /// Of a grid file.
        std::optional<Lattice> lattice;
        CellTypes cellTypes = CellTypes::Stated;
        /// Whether the form is certain. Otherwise the positions show whether they are a lattice when they are read, and
        /// it is planned as if they were none.
        bool isCertain = true;
    };

    /// The field of the cell types.
    std::string cellTypeField;
    /// Why the grid becomes no file, for people; empty where it becomes one.
    std::string obstacle;
    /// Every stop that the field filter lets pass, in the exporter's order.
    std::vector<Fragment> fragments;

    /// Everything that is to be written.
    [[nodiscard]] std::uint64_t elements() const noexcept;

    /// The fields whose arrays the exporter may ask for.
    [[nodiscard]] std::set<std::string> fieldsRead() const;

    /// Whether fields of an element type have a writer; others are passed over.
    [[nodiscard]] static bool hasWriter(const std::type_info& elementType) noexcept;

    /// The plan for a grid; `useField` answers as the exporter's UseThisField() does. Throws what that does.
    [[nodiscard]] static AsciiPlan of(const Sheaf::Grid& grid, const AsciiSettings& settings,
                                      const std::function<bool(const std::string&)>& useField);
};

} // namespace ExportLib
