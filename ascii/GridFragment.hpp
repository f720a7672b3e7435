// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ascii/AsciiPlan.hpp"
#include "ascii/CheckType.hpp"
#include "ascii/EsriGridHeader.hpp"
#include "geom/BoundingBox.hpp"
#include "sheaf/MemArray.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>

namespace ExportLib {

/// The creator of a fragment's positions; may be null.
[[nodiscard]] Sheaf::Field::Creator positionsOf(const Sheaf::Representation& representation,
                                                const Anchor::StrongPtr<Sheaf::FragmentID>& fragment);

/// The positions of the fragment if they are a uniform grid, else null. Creates the array of positions.
[[nodiscard]] Anchor::StrongPtr<Sheaf::UniformCartesianArray> uniformPositions(const CheckType& c);

/// One fragment of a uniform grid as in a grid file: without the cells that it shares with its neighbours. Independent
/// of the element type of the values.
class GridFragment {
public:
    using CellTypes = Sheaf::MemArray<3, unsigned char>;

    /// A fragment (which may be null) of a lattice with its bounding box; nullopt unless the lattice has exactly one
    /// layer. Overlaps that the fragment does not state are 0.
    [[nodiscard]] static std::optional<GridFragment> of(const Sheaf::UniformCartesianArray& lattice,
                                                        const Geom::BoundingBox& box,
                                                        const Anchor::StrongPtr<Sheaf::FragmentID>& fragment);

    /// Nullopt, with a console message, if the grid is not flat. Names on the console the overlaps that the fragment
    /// does not state; they are 0.
    [[nodiscard]] static std::optional<GridFragment> make(const CheckType& c,
                                                          const Sheaf::UniformCartesianArray& lattice);

    /// The path of the grid's file, from the path without its extension: with the extension and, with `tileSuffix`, the
    /// lower left corner. Coordinates beyond 32 bits are clamped to 32 bits, and NaN becomes 0.
    [[nodiscard]] std::filesystem::path path(std::filesystem::path path, bool tileSuffix) const;

    /// The cell types of this fragment; null, with a console message, if there are none or too few.
    [[nodiscard]] Anchor::StrongPtr<CellTypes> cellTypes(const CheckType& c) const;

    /// Whether an array has an element for every cell of the fragment.
    template <class T>
    [[nodiscard]] bool isCoveredBy(const Sheaf::MemArray<3, T>& array) const noexcept {
        const Sheaf::Extents& extents = array.extents();
        return extents[0] >= columns_ && extents[1] >= rows_ && extents[2] >= 1 &&
               extents.elementCount() == array.base_vector().size();
    }

    /// Whether the overlaps do not exceed the fragment; they may leave nothing of it.
    [[nodiscard]] bool overlapsFit() const noexcept;

    [[nodiscard]] EsriGridHeader header() const noexcept;

    /// The lattice as the file describes it, and the error of that description.
    [[nodiscard]] AsciiPlan::Lattice described() const;

    // The cells that are written, if the overlaps fit: columns firstColumn() to endColumn() - 1 of the rows 0 to
    // rowCount() - 1.
    //
    // The columns start after the low overlap; the rows do not, only their number is reduced by it. Surveys tiled with
    // overlaps have been delivered like that, and the programs that reassemble them rely on it, so it stays. The ends
    // are computed in 32 bits, as in those programs.

    [[nodiscard]] std::uint64_t firstColumn() const noexcept { return low_[0]; }
    [[nodiscard]] std::uint64_t endColumn() const noexcept {
        return static_cast<std::uint32_t>(columns_ - high_[0]);
    }
    [[nodiscard]] std::uint64_t rowCount() const noexcept {
        const std::uint64_t end = static_cast<std::uint32_t>(rows_ - high_[1]);
        return end > low_[1] ? end - low_[1] : 0;
    }

private:
    GridFragment() = default;

    std::uint64_t columns_ = 0;
    std::uint64_t rows_ = 0;
    Sheaf::MultiIndex<3> low_{};
    Sheaf::MultiIndex<3> high_{};
    double cellSize_ = 0;
    double spacingY_ = 0;
    double cornerX_ = 0;
    double cornerY_ = 0;
};

/// Which of the 256 cell types a filter accepts.
[[nodiscard]] std::array<bool, 256> acceptedCellTypes(const Geom::MultiRange<double>& filter);

/// Reports on the console that the cell types are unsuitable for a grid.
void reportUnusableCells();

/// Reports on the console that the overlaps exceed the fragment.
void reportLargeOverlap();

} // namespace ExportLib
