// SPDX-License-Identifier: Apache-2.0
#include "ascii/GridFragment.hpp"

#include "anchor/Console.hpp"
#include "geom/BoundingBox.hpp"
#include "sheaf/FragmentID.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

namespace ExportLib {

namespace {

using Creator = Anchor::StrongPtr<Sheaf::CreativeArrayBase, Anchor::Creature>;

/// The overlap, if the fragment states one.
template <int Number>
std::optional<Sheaf::MultiIndex<3>> overlapOf(const Anchor::StrongPtr<Sheaf::FragmentID>& fragment) {
    Sheaf::MultiIndex<3> overlap{};
    if (!Sheaf::FragmentLocation<3, Sheaf::FragmentProperty<Number>>::get(fragment, overlap))
        return std::nullopt;
    return overlap;
}

/// The integer part of a coordinate, clamped to 32 bits.
std::int32_t wholePart(double coordinate) {
    using Limits = std::numeric_limits<std::int32_t>;
    if (std::isnan(coordinate))
        return 0;
    return static_cast<std::int32_t>(
        std::clamp(coordinate, static_cast<double>(Limits::min()), static_cast<double>(Limits::max())));
}

} // namespace

Sheaf::Field::Creator positionsOf(const Sheaf::Representation& representation,
                                  const Anchor::StrongPtr<Sheaf::FragmentID>& fragment) {
    const auto& field = representation.Positions();
    return field ? field->getCreator(fragment) : nullptr;
}

Anchor::StrongPtr<Sheaf::UniformCartesianArray> uniformPositions(const CheckType& c) {
    const Creator positions = positionsOf(c.representation, c.fragment);
    return positions ? Anchor::dynamicCast<Sheaf::UniformCartesianArray>(positions->create(false)) : nullptr;
}

std::optional<GridFragment> GridFragment::of(const Sheaf::UniformCartesianArray& lattice,
                                             const Geom::BoundingBox& box,
                                             const Anchor::StrongPtr<Sheaf::FragmentID>& fragment) {
    if (lattice.extents()[2] != 1)
        return std::nullopt;
    GridFragment grid;
    grid.columns_ = lattice.extents()[0];
    grid.rows_ = lattice.extents()[1];
    grid.low_ = overlapOf<2>(fragment).value_or(Sheaf::MultiIndex<3>{});
    grid.high_ = overlapOf<3>(fragment).value_or(Sheaf::MultiIndex<3>{});
    grid.cellSize_ = lattice.spacing().x;
    grid.spacingY_ = lattice.spacing().y;
    // An empty grid leaves the box empty, but it still has an origin.
    const bool hasCells = grid.columns_ != 0 && grid.rows_ != 0;
    const Geom::PhysicalSpace::point& corner = hasCells ? box.lower() : lattice.origin();
    grid.cornerX_ = static_cast<double>(grid.low_[0]) * lattice.spacing().x + corner.x;
    grid.cornerY_ = static_cast<double>(grid.low_[1]) * lattice.spacing().y + corner.y;
    return grid;
}

std::optional<GridFragment> GridFragment::make(const CheckType& c,
                                               const Sheaf::UniformCartesianArray& lattice) {
    Geom::BoundingBox box;
    if (const Creator positions = positionsOf(c.representation, c.fragment))
        Sheaf::ExpandBBox(box, *positions, true);
    const auto fragment = of(lattice, box, c.fragment);
    if (!fragment) {
        Anchor::Console() << "Export as esri can only have dim: 1";
        return std::nullopt;
    }
    for (const bool isStated : {overlapOf<2>(c.fragment).has_value(), overlapOf<3>(c.fragment).has_value()}) {
        if (!isStated)
            Anchor::Console() << "No Overlap";
    }
    return fragment;
}

std::filesystem::path GridFragment::path(std::filesystem::path path, bool tileSuffix) const {
    // Appended as text: a dot in a fragment's name does not start an extension.
    if (tileSuffix) {
        for (const double coordinate : {cornerX_, cornerY_})
            (path += "_") += std::to_string(wholePart(coordinate));
    }
    path += ".grd";
    return path;
}

Anchor::StrongPtr<GridFragment::CellTypes> GridFragment::cellTypes(const CheckType& c) const {
    const auto& field = c.representation.findField(c.cellTypeFieldName.c_str());
    if (!field) {
        Anchor::Console() << "Have no cell type field";
        return nullptr;
    }
    const Creator creator = field->getCreator(c.fragment);
    if (!creator) {
        Anchor::Console() << "Have no cell type CAB";
        return nullptr;
    }
    auto types = Anchor::dynamicCast<CellTypes>(creator->create(false));
    if (!types || !isCoveredBy(*types)) {
        reportUnusableCells();
        return nullptr;
    }
    return types;
}

bool GridFragment::overlapsFit() const noexcept {
    const auto fits = [](std::uint64_t low, std::uint64_t high, std::uint64_t count) {
        return low <= count && high <= count - low;
    };
    return fits(low_[0], high_[0], columns_) && fits(low_[1], high_[1], rows_);
}

EsriGridHeader GridFragment::header() const noexcept {
    return {columns_ - (low_[0] + high_[0]), rows_ - (low_[1] + high_[1]), cornerX_, cornerY_, cellSize_};
}

AsciiPlan::Lattice GridFragment::described() const {
    const double cell = EsriGridHeader::asWritten(cellSize_);
    // Cells are counted from the corner, so the farthest one is displaced most.
    const auto loss = [&](double corner, double spacing, std::uint64_t count) {
        const auto last = static_cast<double>(count > 0 ? count - 1 : 0);
        const double written = EsriGridHeader::asWritten(corner);
        const double largest =
            std::max(std::abs(written - corner), std::abs(written + last * cell - (corner + last * spacing)));
        const double noise = 8 * std::numeric_limits<double>::epsilon() *
                             std::max(std::abs(corner), std::abs(corner + last * spacing));
        return largest > noise ? largest : 0;
    };
    AsciiPlan::Lattice lattice;
    lattice.spacingX = cellSize_;
    lattice.spacingY = spacingY_;
    lattice.writtenCellSize = cell;
    lattice.isSquareAsWritten = EsriGridHeader::asWritten(spacingY_) == cell;
    lattice.rowShift = low_[1];
    if (overlapsFit()) {
        const EsriGridHeader written = header();
        lattice.coordinateLoss =
            std::max(loss(cornerX_, cellSize_, written.columns), loss(cornerY_, spacingY_, written.rows));
    }
    return lattice;
}

std::array<bool, 256> acceptedCellTypes(const Geom::MultiRange<double>& filter) {
    std::array<bool, 256> accepted{};
    for (std::size_t type = 0; type < accepted.size(); ++type)
        accepted[type] = filter.contains(static_cast<double>(type));
    return accepted;
}

void reportUnusableCells() {
    Anchor::Console() << "Have no cell type mem";
}

void reportLargeOverlap() {
    Anchor::Console() << "Overlap is larger than the grid";
}

} // namespace ExportLib
