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

/// The settings of ExportPointCloudToASCII that decide what goes where, with the same names.
struct AsciiSettings {
    std::string filterField;
    int refinementLevel;
    unsigned int precision;
    bool append;
    bool tileSuffix;
};

/// What ExportPointCloudToASCII will write for a grid, determined in advance by the same rules as in its Run(). Making
/// a plan changes nothing and creates no array.
struct TIDEWATCH_API AsciiPlan {
    /// Decimals of everything except the values of grids.
    static constexpr unsigned int coordinateDecimals = 6;

    enum class Form {
        None, ///< no file
        List, ///< elements as text, ".asc"
        Grid  ///< an ESRI ASCII grid, ".grd"
    };

    /// What is known about the cell types that a grid file needs.
    enum class CellTypes {
        Stated,    ///< there is an array, or none is needed
        NoField,   ///< the representation has no such field: the file stays empty
        NoFragment ///< the field has nothing for the fragment: the file stays empty
    };

    /// The lattice as the header of a grid file describes it.
    struct Lattice {
        /// The distance between neighbours along x and y, in coordinate units.
        double spacingX = 0;
        double spacingY = 0;
        /// The value in the file for both of them.
        double writtenCellSize = 0;
        /// Whether the spacing along y, written the same way, equals the cell size.
        bool isSquareAsWritten = true;
        /// The largest displacement of a cell in the file along x or y, in coordinate units; 0 if that is within the
        /// noise of a double.
        double coordinateLoss = 0;
        /// By how many rows the values are too far north: the rows that the fragment shares with its southern
        /// neighbour.
        std::uint64_t rowShift = 0;
        /// Whether bytes become characters instead of numbers.
        bool asCharacters = false;
    };

    /// A fragment of a field in the exporter's traversal.
    struct Fragment {
        std::string field;
        /// May be null.
        Anchor::StrongPtr<Sheaf::FragmentID> fragment;
        /// Whether the exporter selects its skeleton; others count in its progress and are skipped.
        bool isSelected = false;
        /// Whether the input marks the skeleton as not to be exported.
        bool isExcluded = false;
        Form form = Form::None;
        /// Why a selected fragment gets no file, as text for messages. Empty if it gets one, and for positions that the
        /// header of a grid states.
        std::string whyLeftOut;
        /// Where the file goes, relative to the output folder; empty without a file.
        std::filesystem::path file;
        /// Elements of the array, as far as it is known; 0 without a file.
        std::uint64_t elements = 0;
        /// Only for a grid file.
        std::optional<Lattice> lattice;
        CellTypes cellTypes = CellTypes::Stated;
        /// Whether the form is certain. Otherwise only reading the positions shows whether they are a lattice, and the
        /// plan assumes that they are not.
        bool isCertain = true;
    };

    /// The field of the cell types.
    std::string cellTypeField;
    /// Why the grid gets no file, as a text for the user; empty if it gets one.
    std::string obstacle;
    /// Every fragment that the field filter lets pass, in the exporter's order.
    std::vector<Fragment> fragments;

    /// The number of elements to be written.
    [[nodiscard]] std::uint64_t elements() const noexcept;

    /// The fields whose arrays the exporter may request.
    [[nodiscard]] std::set<std::string> fieldsRead() const;

    /// Whether fields of an element type have a writer; others are skipped.
    [[nodiscard]] static bool hasWriter(const std::type_info& elementType) noexcept;

    /// The plan for a grid; `useField` is the exporter's UseThisField(). Throws what `useField` throws.
    [[nodiscard]] static AsciiPlan of(const Sheaf::Grid& grid, const AsciiSettings& settings,
                                      const std::function<bool(const std::string&)>& useField);
};

} // namespace ExportLib
