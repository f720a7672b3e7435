// SPDX-License-Identifier: Apache-2.0
#include "library/view/ViewPart.hpp"

#include "anchor/Error.hpp"
#include "library/view/chooseByCells.hpp"
#include "sheaf/TypedArray.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

using Geom::PhysicalSpace;

/// The ratio of candidates to wanted points: more candidates allow a more even distribution.
constexpr std::uint64_t choice = 3;

/// How many points of each class are kept at least, if it has them.
constexpr std::uint64_t keptOfClass = 64;

constexpr std::size_t stride = 65'536;

constexpr std::uint64_t always = std::uint64_t{1} << 32;

Anchor::StrongPtr<Anchor::Cacheable> arrayOf(const Sheaf::Field& field,
                                             const Anchor::StrongPtr<Sheaf::FragmentID>& fragment) {
    const auto creator = field.getCreator(fragment);
    return creator ? creator->create(false) : Anchor::StrongPtr<Anchor::Cacheable>();
}

std::vector<NamedColumn> columnsFor(const std::vector<ViewField>& fields) {
    std::vector<NamedColumn> columns;
    for (const ViewField& field : fields)
        columns.push_back(
            {field.label, field.role, ViewColumn::make(field.field->getElementType(), field.component)});
    return columns;
}

/// Creates every array once, even for several columns.
void takeColumns(std::vector<NamedColumn>& columns, const std::vector<ViewField>& fields,
                 const Anchor::StrongPtr<Sheaf::FragmentID>& fragment,
                 std::span<const std::uint32_t> elements) {
    Anchor::StrongPtr<Anchor::Cacheable> array;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (i == 0 || fields[i].field != fields[i - 1].field)
            array = arrayOf(*fields[i].field, fragment);
        columns[i].values->take(array, elements);
    }
}

} // namespace

std::uint64_t latticeStep(std::uint64_t columns, std::uint64_t rows, std::uint64_t wanted) {
    std::uint64_t step = 1;
    const auto left = [&](std::uint64_t places) { return (places + step - 1) / step; };
    while (left(columns) * left(rows) > std::max<std::uint64_t>(wanted, 4))
        ++step;
    return step;
}

PointPart::PointPart(std::vector<ViewField> fields, std::uint64_t total, std::uint64_t wanted)
    : fields_(std::move(fields)),
      columns_(columnsFor(fields_)) {
    const std::uint64_t candidates = choice * wanted;
    threshold_ = total <= candidates ? always
                                     : static_cast<std::uint64_t>(static_cast<double>(always) *
                                                                  static_cast<double>(candidates) /
                                                                  static_cast<double>(total));
    every_.fill(1);
    for (std::size_t i = 0; i < fields_.size(); ++i) {
        if (fields_[i].role == "class") {
            classes_ = columns_[i].values.get();
            classField_ = fields_[i].field;
        }
    }
}

void PointPart::take(std::span<const PhysicalSpace::point> positions,
                     const Anchor::StrongPtr<Sheaf::FragmentID>& fragment,
                     const std::function<void()>& mayGoOn) {
    if (positions.size() > std::numeric_limits<std::uint32_t>::max() - positions_.size())
        throw Anchor::LimitError(
            fmt::format("a fragment of {} points is too large for a view", positions.size()));
    std::span<const unsigned char> classes;
    Anchor::StrongPtr<Sheaf::TypedArray<unsigned char>> classArray;
    if (classField_) {
        classArray = Anchor::dynamicCast<Sheaf::TypedArray<unsigned char>>(arrayOf(*classField_, fragment));
        if (classArray)
            classes = classArray->base_vector();
    }
    std::vector<std::uint32_t> taken;
    for (std::size_t begin = 0; begin < positions.size(); begin += stride) {
        mayGoOn();
        const std::size_t end = std::min(begin + stride, positions.size());
        for (std::size_t i = begin; i < end; ++i) {
            bool take = threshold_ == always || (scrambled(seen_ + i) >> 32) < threshold_;
            if (threshold_ != always && i < classes.size()) {
                // Takes every n-th point of each class, with growing n, so that some are spread over all its
                // points.
                const unsigned char kind = classes[i];
                const std::uint64_t number = met_[kind]++;
                if (number % every_[kind] == 0) {
                    take = true;
                    if (number >= 2 * keptOfClass * every_[kind])
                        every_[kind] *= 2;
                }
            }
            if (take)
                taken.push_back(static_cast<std::uint32_t>(i));
        }
    }
    seen_ += positions.size();
    for (const std::uint32_t i : taken)
        positions_.push_back(positions[i]);
    takeColumns(columns_, fields_, fragment, taken);
}

std::uint64_t PointPart::bytes() const {
    std::uint64_t sum = positions_.capacity() * sizeof(PhysicalSpace::point);
    for (const NamedColumn& column : columns_)
        sum += column.values->bytes();
    return sum;
}

std::vector<bool> PointPart::keptForClasses(std::uint64_t wanted) const {
    if (classes_ == nullptr)
        return {};
    const std::uint64_t most = std::clamp<std::uint64_t>(wanted / 1024, 1, keptOfClass);
    std::array<std::vector<std::uint32_t>, 256> members;
    const auto classOf = [&](std::size_t point) -> std::optional<std::size_t> {
        const double code = classes_->value(point);
        return code >= 0 && code < 256 ? std::optional<std::size_t>(static_cast<std::size_t>(code))
                                       : std::nullopt;
    };
    for (std::size_t i = 0; i < positions_.size(); ++i) {
        if (const auto code = classOf(i))
            members[*code].push_back(static_cast<std::uint32_t>(i));
    }
    std::vector<bool> kept(positions_.size());
    for (const auto& list : members) {
        const std::uint64_t count = std::min<std::uint64_t>(most, list.size());
        for (std::uint64_t k = 0; k < count; ++k)
            kept[list[static_cast<std::size_t>(k * list.size() / count)]] = true;
    }
    return kept;
}

void PointPart::choose(std::uint64_t wanted) {
    chosen_ = chooseByCells(positions_, wanted, keptForClasses(wanted));
}

std::array<std::uint64_t, 256> PointPart::classes() const {
    std::array<std::uint64_t, 256> counts{};
    if (classes_ != nullptr) {
        for (const std::uint32_t point : chosen_) {
            const double code = classes_->value(point);
            if (code >= 0 && code < 256)
                ++counts[static_cast<std::size_t>(code)];
        }
    }
    return counts;
}

std::vector<NamedPack> PointPart::pack() const {
    std::vector<NamedPack> packs;
    std::vector<double> values(chosen_.size());
    const auto addAxis = [&](const char* name, double PhysicalSpace::point::*axis) {
        for (std::size_t i = 0; i < chosen_.size(); ++i)
            values[i] = positions_[chosen_[i]].*axis;
        packs.push_back({name, name, packCoordinates(values)});
    };
    addAxis("x", &PhysicalSpace::point::x);
    addAxis("y", &PhysicalSpace::point::y);
    addAxis("z", &PhysicalSpace::point::z);
    for (const NamedColumn& column : columns_)
        packs.push_back({column.name, column.role, column.values->pack(chosen_)});
    return packs;
}

SurfacePart::SurfacePart(const std::vector<ViewField>& fields, const Sheaf::Representation& representation,
                         const Sheaf::UniformCartesianArray& lattice,
                         const Anchor::StrongPtr<Sheaf::FragmentID>& fragment, std::uint64_t wanted)
    : columns_(columnsFor(fields)),
      height_(heightField(fields)) {
    const std::uint64_t columns = lattice.extents()[0];
    const std::uint64_t rows = lattice.extents()[1];
    if (columns > std::numeric_limits<std::uint32_t>::max() / std::max<std::uint64_t>(rows, 1))
        throw Anchor::LimitError(
            fmt::format("a lattice of {} by {} places is too large for a view", columns, rows));
    taken_ = latticeStep(columns, rows, wanted);
    all_ = {(columns + taken_ - 1) / taken_, (rows + taken_ - 1) / taken_};
    std::vector<std::uint32_t> elements;
    elements.reserve(all_[0] * all_[1]);
    for (std::uint64_t row = 0; row < rows; row += taken_) {
        for (std::uint64_t column = 0; column < columns; column += taken_)
            elements.push_back(static_cast<std::uint32_t>(row * columns + column));
    }
    takeColumns(columns_, fields, fragment, elements);
    holes_.resize(elements.size());
    if (const auto& types = representation.findField(cellTypeField)) {
        if (const auto column = ViewColumn::make(types->getElementType(), 0)) {
            column->take(arrayOf(*types, fragment), elements);
            for (std::size_t i = 0; i < elements.size(); ++i)
                holes_[i] = column->value(i) == 0;
        }
    }
    origin_ = {lattice.origin().x, lattice.origin().y};
    taken0_ = {lattice.spacing().x, lattice.spacing().y};
    thin(1);
}

void SurfacePart::thin(std::uint64_t step) {
    chosen_.clear();
    extents_ = {(all_[0] + step - 1) / step, (all_[1] + step - 1) / step};
    for (std::uint64_t row = 0; row < all_[1]; row += step) {
        for (std::uint64_t column = 0; column < all_[0]; column += step)
            chosen_.push_back(static_cast<std::uint32_t>(row * all_[0] + column));
    }
    const auto steps = static_cast<double>(taken_ * step);
    spacing_ = {taken0_[0] * steps, taken0_[1] * steps};
}

std::vector<NamedPack> SurfacePart::pack() const {
    std::vector<NamedPack> packs;
    for (const NamedColumn& column : columns_)
        packs.push_back({column.name, column.role, column.values->pack(chosen_)});
    std::vector<std::optional<std::int64_t>> holes(chosen_.size());
    for (std::size_t i = 0; i < chosen_.size(); ++i)
        holes[i] = holes_[chosen_[i]] ? 1 : 0;
    packs.push_back({"hole", "hole", *packIntegers(holes, 0)});
    return packs;
}

} // namespace Tidewatch
