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

Creator creatorOf(const Anchor::StrongPtr<Sheaf::Field>& field, const CheckType& c) {
    return field ? field->getCreator(c.fragment) : nullptr;
}

template <int Number>
Sheaf::MultiIndex<3> overlapOf(const CheckType& c) {
    Sheaf::MultiIndex<3> overlap{};
    if (!Sheaf::FragmentLocation<3, Sheaf::FragmentProperty<Number>>::get(c.fragment, overlap))
        Anchor::Console() << "No Overlap";
    return overlap;
}

/// The whole part of a coordinate as 32 bits hold it.
std::int32_t wholePart(double coordinate) {
    using Limits = std::numeric_limits<std::int32_t>;
    if (std::isnan(coordinate))
        return 0;
    return static_cast<std::int32_t>(
        std::clamp(coordinate, static_cast<double>(Limits::min()), static_cast<double>(Limits::max())));
}

} // namespace

Anchor::StrongPtr<Sheaf::UniformCartesianArray> uniformPositions(const CheckType& c) {
    const Creator positions = creatorOf(c.representation.Positions(), c);
    return positions ? Anchor::dynamicCast<Sheaf::UniformCartesianArray>(positions->create(false)) : nullptr;
}

std::optional<GridFragment> GridFragment::make(const CheckType& c,
                                               const Sheaf::UniformCartesianArray& lattice) {
    Geom::BoundingBox box;
    if (const Creator positions = creatorOf(c.representation.Positions(), c))
        Sheaf::ExpandBBox(box, *positions, true);
    if (lattice.extents()[2] != 1) {
        Anchor::Console() << "Export as esri can only have dim: 1";
        return std::nullopt;
    }
    GridFragment fragment;
    fragment.columns_ = lattice.extents()[0];
    fragment.rows_ = lattice.extents()[1];
    fragment.low_ = overlapOf<2>(c);
    fragment.high_ = overlapOf<3>(c);
    fragment.cellSize_ = lattice.spacing().x;
    // A grid without cells widens no box, and has its place all the same.
    const bool hasCells = fragment.columns_ != 0 && fragment.rows_ != 0;
    const Geom::PhysicalSpace::point& corner = hasCells ? box.lower() : lattice.origin();
    fragment.cornerX_ = static_cast<double>(fragment.low_[0]) * lattice.spacing().x + corner.x;
    fragment.cornerY_ = static_cast<double>(fragment.low_[1]) * lattice.spacing().y + corner.y;
    return fragment;
}

std::filesystem::path GridFragment::path(const CheckType& c) const {
    // Appended as text: what looks like an extension in a fragment's name is a part of the name.
    std::filesystem::path path = c.outputPath;
    if (c.tileSuffix) {
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
    const Creator creator = creatorOf(field, c);
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

bool GridFragment::overlapsFit() const {
    const auto fits = [](std::uint64_t low, std::uint64_t high, std::uint64_t count) {
        return low <= count && high <= count - low;
    };
    if (fits(low_[0], high_[0], columns_) && fits(low_[1], high_[1], rows_))
        return true;
    Anchor::Console() << "Overlap is larger than the grid";
    return false;
}

EsriGridHeader GridFragment::header() const noexcept {
    return {columns_ - (low_[0] + high_[0]), rows_ - (low_[1] + high_[1]), cornerX_, cornerY_, cellSize_};
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

} // namespace ExportLib
