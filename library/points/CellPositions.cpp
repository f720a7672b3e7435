// SPDX-License-Identifier: Apache-2.0
#include "library/points/CellPositions.hpp"

#include "anchor/Error.hpp"
#include "sheaf/MemArray.hpp"

#include <type_traits>
#include <utility>

namespace Tidewatch {

using Point = Geom::PhysicalSpace::point;

CellPositions::CellPositions(Anchor::StrongPtr<const Lattice> lattice,
                             Anchor::StrongPtr<const FragmentMask> mask, Sheaf::Field::Creator heights,
                             std::string where)
    : CachedCreator(typeid(Point), Sheaf::Extents{mask->elements()}),
      lattice_(std::move(lattice)),
      mask_(std::move(mask)),
      heights_(std::move(heights)),
      where_(std::move(where)) {}

CellPositions::~CellPositions() = default;

std::optional<Sheaf::Extents> CellPositions::extents() const {
    return Sheaf::Extents{mask_->knownCount().value_or(mask_->elements())};
}

std::uint64_t CellPositions::bytesToMake() const {
    return mask_->chosen().count() * sizeof(Point);
}

std::vector<double> CellPositions::scalars(const Sheaf::CreativeArrayBase& data, std::size_t size,
                                           const std::string& where) {
    const auto made = data.create(false);
    std::vector<double> values;
    Sheaf::visitElementType(data.elementType(), [&](auto tag) {
        using T = typename decltype(tag)::type;
        if constexpr (std::is_arithmetic_v<T>) {
            if (const auto array = Anchor::dynamicCast<Sheaf::TypedArray<T>>(made)) {
                values.reserve(array->base_vector().size());
                for (const T value : array->base_vector())
                    values.push_back(static_cast<double>(value));
            }
        }
    });
    if (values.size() != size)
        throw Anchor::ModelError(where + " is not an array of the stated type and size");
    return values;
}

Sheaf::CachedCreator::Made CellPositions::make() const {
    const ElementSet& chosen = mask_->chosen();
    const std::vector<double> heights = scalars(*heights_, chosen.size(), where_);
    const std::uint64_t columns = lattice_->extents()[0];
    const std::uint64_t rows = lattice_->extents()[1];
    std::vector<Point> points;
    points.reserve(chosen.count());
    chosen.forEach([&](std::size_t cell) {
        points.push_back(
            {lattice_->origin().x + static_cast<double>(cell % columns) * lattice_->spacing().x,
             lattice_->origin().y + static_cast<double>(cell / columns % rows) * lattice_->spacing().y,
             heights[cell]});
    });
    return {Sheaf::makeArray(std::move(points))};
}

} // namespace Tidewatch
