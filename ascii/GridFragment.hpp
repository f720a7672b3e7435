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

/// The positions of the fragment where they are a uniform grid, else null. Makes the array of positions.
[[nodiscard]] Anchor::StrongPtr<Sheaf::UniformCartesianArray> uniformPositions(const CheckType& c);

/// One fragment of a uniform grid as a grid file shows it: without the cells that it shares with its
/// neighbours. Independent of the element type of the values.
class GridFragment {
public:
    using CellTypes = Sheaf::MemArray<3, unsigned char>;

    /// A fragment (which may be null) of a lattice with its bounding box; nullopt unless the lattice has exactly one
    /// layer. Overlaps that the fragment does not state are none.
    [[nodiscard]] static std::optional<GridFragment> of(const Sheaf::UniformCartesianArray& lattice,
                                                        const Geom::BoundingBox& box,
                                                        const Anchor::StrongPtr<Sheaf::FragmentID>& fragment);

    /// Nothing, and a console message, where the grid is not flat. Tells on the console which overlaps the
    /// fragment does not state; they are none then.
    [[nodiscard]] static std::optional<GridFragment> make(const CheckType& c,
                                                          const Sheaf::UniformCartesianArray& lattice);

    /// The path of the grid's file, from the path without its extension: with the extension and, where the exporter
    /// wants it, the lower left corner. Coordinates beyond 32 bits are taken for the limit of 32 bits, and a NaN for 0.
    [[nodiscard]] std::filesystem::path path(std::filesystem::path path, bool tileSuffix) const;

    /// The cell types of this fragment; null, and a console message, where there are none or too few.
    [[nodiscard]] Anchor::StrongPtr<CellTypes> cellTypes(const CheckType& c) const;

    /// Whether an array has an element for every cell of the fragment.
    template <class T>
    [[nodiscard]] bool isCoveredBy(const Sheaf::MemArray<3, T>& array) const noexcept {
        const Sheaf::Extents& extents = array.extents();
        return extents[0] >= columns_ && extents[1] >= rows_ && extents[2] >= 1 &&
               extents.elementCount() == array.base_vector().size();
    }

    /// Whether the overlaps leave a part of the fragment, be it an empty one.
    [[nodiscard]] bool overlapsFit() const noexcept;

    [[nodiscard]] EsriGridHeader header() const noexcept;

    /// What the file says of the lattice, and how far that is from the truth.
    [[nodiscard]] AsciiPlan::Lattice described() const;

    // The cells that are written, where the overlaps fit: columns firstColumn() to endColumn() - 1 of the
    // rows 0 to rowCount() - 1.
    //
    // The columns begin behind the low overlap; the rows do not, only their number is reduced by it. Surveys
    // that were tiled with overlaps have been delivered like that, and their parts are put together again by
    // programs that know of it, so it stays. The ends are counted in 32 bits, as those programs do.

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

/// Tells on the console that the cell types are not of the kind that a grid needs.
void reportUnusableCells();

/// Tells on the console that the overlaps leave less than nothing of the fragment.
void reportLargeOverlap();

} // namespace ExportLib
