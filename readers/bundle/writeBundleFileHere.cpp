// SPDX-License-Identifier: Apache-2.0
#include "anchor/Error.hpp"
#include "anchor/printable.hpp"
#include "readers/bundle/BundleFormat.hpp"
#include "readers/bundle/BundleModule.hpp"
#include "readers/bundle/hdf5/NewFile.hpp"
#include "readers/names.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/TypedArray.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <map>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

namespace Tidewatch {

namespace {

using Group = Hdf5::NewFile::Group;

/// A group's key that sorts by number: "t000012".
std::string numberedKey(char letter, std::size_t number) {
    const std::string digits = std::to_string(number);
    return letter + std::string(digits.size() < 6 ? 6 - digits.size() : 0, '0') + digits;
}

/// Calls a function with every live slice, in order.
template <class Visit>
void forEachSlice(const Sheaf::Bundle& bundle, Visit&& visit) {
    for (const auto& [time, entry] : bundle.slices()) {
        if (const auto slice = entry.lock())
            visit(*slice);
    }
}

/// Calls a function with every live grid of a slice, in order.
template <class Visit>
void forEachGrid(const Sheaf::Slice& slice, Visit&& visit) {
    for (const auto& [name, entry] : slice.grids()) {
        if (const auto grid = entry.lock())
            visit(*grid);
    }
}

std::uint64_t countArrays(const Sheaf::Bundle& bundle) {
    std::uint64_t count = 0;
    forEachSlice(bundle, [&](const Sheaf::Slice& slice) {
        forEachGrid(slice, [&](const Sheaf::Grid& grid) {
            grid.skeletons().iterate_all([&](const Sheaf::FieldFragment&) {
                ++count;
                return true;
            });
        });
    });
    return count;
}

/// One writing of a bundle.
class BundleFileWriting {
public:
    BundleFileWriting(const Sheaf::Bundle& bundle, const std::string& path,
                      const BundleFileWriteOptions& options)
        : path_(path),
          options_(options),
          total_(countArrays(bundle)) {}

    void writeBundle(const Sheaf::Bundle& bundle, const Group& root);

private:
    void writeSlice(const Sheaf::Slice& slice, const Group& group);
    void writeGrid(const Sheaf::Grid& grid, const Group& group);
    void writeFragments(const Sheaf::Grid& grid, const Group& group) const;
    void writeSkeleton(const Sheaf::Skeleton& skeleton, const Group& group);
    void writeField(const std::string& name, const Sheaf::Field& field, const Group& representation);
    void writeFragmentedField(const Sheaf::Field& field, const Group& group);

    /// Makes an array and writes it as a member of a group; false where there is no data to be had. `element`
    /// becomes the member's attribute where it is not empty.
    [[nodiscard]] bool writeArray(const Sheaf::CreativeArrayBase& creator, const Sheaf::Field& field,
                                  const Group& group, const std::string& name, std::string_view element);
    void writeNumbers(const Sheaf::MemBase& array, const Group& group, const std::string& name,
                      std::string_view element) const;

    /// A member group for something that is called by that name; the name has to be fit for it.
    [[nodiscard]] Group addNamed(const Group& group, const std::string& name, const char* what) const;
    void requireFit(const Group& group, const std::string& name, const char* what) const;
    [[noreturn]] void fail(const Group& group, const std::string& name, const std::string& what) const;
    void tick() const {
        if (options_.Progress)
            options_.Progress(done_, total_);
    }

    const std::string& path_;
    const BundleFileWriteOptions& options_;
    std::uint64_t done_ = 0;
    std::uint64_t total_;
};

void BundleFileWriting::writeBundle(const Sheaf::Bundle& bundle, const Group& root) {
    root.setText(BundleFormat::formatAttribute, BundleFormat::formatName);
    root.setNumber(BundleFormat::versionAttribute, std::int32_t{BundleFormat::version});
    const Group slices = root.addGroup(BundleFormat::slices);
    std::size_t number = 0;
    forEachSlice(bundle, [&](const Sheaf::Slice& slice) {
        writeSlice(slice, slices.addGroup(numberedKey('t', number++)));
    });
}

void BundleFileWriting::writeSlice(const Sheaf::Slice& slice, const Group& group) {
    group.setNumber(BundleFormat::time, slice.time());
    const Group grids = group.addGroup(BundleFormat::grids);
    forEachGrid(slice,
                [&](const Sheaf::Grid& grid) { writeGrid(grid, addNamed(grids, grid.name(), "grid")); });
}

void BundleFileWriting::writeGrid(const Sheaf::Grid& grid, const Group& group) {
    const Group charts = group.addGroup(BundleFormat::charts);
    for (const std::string& chart : grid.chartNames())
        static_cast<void>(addNamed(charts, chart, "chart"));
    writeFragments(grid, group.addGroup(BundleFormat::fragments));
    const Group skeletons = group.addGroup(BundleFormat::skeletons);
    std::size_t number = 0;
    grid.skeletons().forEach([&](const Sheaf::Skeleton& skeleton) {
        writeSkeleton(skeleton, skeletons.addGroup(numberedKey('s', number++)));
        return true;
    });
}

void BundleFileWriting::writeFragments(const Sheaf::Grid& grid, const Group& group) const {
    // A host may have given its fields identifiers that the grid does not know.
    auto fragments = grid.fragments();
    grid.skeletons().iterate_all([&](const Sheaf::FieldFragment& stop) {
        if (stop.fragment)
            fragments.try_emplace(stop.fragment->name(), stop.fragment);
        return true;
    });
    for (const auto& [name, fragment] : fragments) {
        const Group member = addNamed(group, name, "fragment");
        Sheaf::MultiIndex<3> overlap{};
        if (Sheaf::FragmentLocation<3, Sheaf::FragmentProperty<2>>::get(fragment, overlap))
            member.setNumbers(BundleFormat::overlapLow, std::span<const std::uint64_t>(overlap));
        if (Sheaf::FragmentLocation<3, Sheaf::FragmentProperty<3>>::get(fragment, overlap))
            member.setNumbers(BundleFormat::overlapHigh, std::span<const std::uint64_t>(overlap));
    }
}

void BundleFileWriting::writeSkeleton(const Sheaf::Skeleton& skeleton, const Group& group) {
    group.setNumber(BundleFormat::dimension, std::int32_t{skeleton.dimension()});
    if (!skeleton.refinement().empty())
        group.setNumbers(BundleFormat::refinement, std::span<const std::int32_t>(skeleton.refinement()));
    if (skeleton.exclusionMark() != 0)
        group.setNumber(BundleFormat::excluded, skeleton.exclusionMark());
    const Group representations = group.addGroup(BundleFormat::representations);
    skeleton.representations().forEach(
        [&](const Sheaf::BaseSpace& space, const Sheaf::Representation& representation) {
            const auto* const chart = dynamic_cast<const Sheaf::CartesianChart*>(&space);
            if (chart == nullptr)
                fail(group, BundleFormat::representations,
                     "a representation that is not in a Cartesian chart cannot be stored");
            const Group member = addNamed(representations, chart->name(), "chart");
            return representation.forEachField([&](const Sheaf::FieldID& id, const Sheaf::Field& field) {
                writeField(id.name(), field, member);
                return true;
            });
        });
}

void BundleFileWriting::writeField(const std::string& name, const Sheaf::Field& field,
                                   const Group& representation) {
    requireFit(representation, name, "field");
    const std::string_view element = Sheaf::elementTypeName(field.getElementType());
    if (element.empty())
        fail(representation, name, "the field's element type cannot be stored");
    const auto whole = field.getCreator(nullptr);
    if (whole && field.getFragmentIDs().size() > 1)
        fail(representation, name, "the field has data both with and without fragments");
    if (whole && writeArray(*whole, field, representation, name, element))
        return;
    const Group group = representation.addGroup(name);
    group.setText(BundleFormat::element, element);
    if (!whole)
        writeFragmentedField(field, group);
}

void BundleFileWriting::writeFragmentedField(const Sheaf::Field& field, const Group& group) {
    field.forEachFragment(
        [&](const Anchor::StrongPtr<Sheaf::FragmentID>& fragment, const Sheaf::Field::Creator& data) {
            // Where there is no data to be had, there is nothing that a reader could give either.
            static_cast<void>(writeArray(*data, field, group, fragment->name(), {}));
            return true;
        });
}

bool BundleFileWriting::writeArray(const Sheaf::CreativeArrayBase& creator, const Sheaf::Field& field,
                                   const Group& group, const std::string& name, std::string_view element) {
    tick();
    ++done_;
    const auto data = creator.create(false);
    if (!data)
        return false;
    const auto array = Anchor::dynamicCast<Sheaf::MemBase>(data);
    if (!array || array->elementType() != field.getElementType())
        fail(group, name, "the array's element type is not that of its field");
    const auto lattice = Anchor::dynamicCast<Sheaf::UniformCartesianArray>(array);
    if (!lattice) {
        writeNumbers(*array, group, name, element);
        return true;
    }
    const Group member = group.addGroup(name);
    const std::array<double, 3> origin{lattice->origin().x, lattice->origin().y, lattice->origin().z};
    const std::array<double, 3> spacing{lattice->spacing().x, lattice->spacing().y, lattice->spacing().z};
    const std::array<std::uint64_t, 3> extents{array->extents()[0], array->extents()[1], array->extents()[2]};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        if (!std::isfinite(origin[axis]) || !BundleFormat::isSpacing(spacing[axis]))
            fail(group, name,
                 "uniform positions that are not finite, or whose spacing is not above 0, cannot be stored");
    }
    if (!element.empty())
        member.setText(BundleFormat::element, element);
    member.setText(BundleFormat::kind, BundleFormat::uniformKind);
    member.setNumbers(BundleFormat::origin, std::span<const double>(origin));
    member.setNumbers(BundleFormat::spacing, std::span<const double>(spacing));
    member.setNumbers(BundleFormat::extents, std::span<const std::uint64_t>(extents));
    return true;
}

void BundleFileWriting::writeNumbers(const Sheaf::MemBase& array, const Group& group, const std::string& name,
                                     std::string_view element) const {
    Sheaf::visitElementType(array.elementType(), [&](auto tag) {
        using T = typename decltype(tag)::type;
        using Traits = Sheaf::ElementTraits<T>;
        const auto* const typed = dynamic_cast<const Sheaf::TypedArray<T>*>(&array);
        if (typed == nullptr || array.extents().rank() == 0 ||
            array.extents().elementCount() != typed->base_vector().size())
            fail(group, name, "the array cannot be stored: it does not hold what its extents say");
        std::vector<std::uint64_t> extents;
        for (std::size_t axis = array.extents().rank(); axis-- > 0;)
            extents.push_back(array.extents()[axis]);
        if (Traits::componentCount != 1)
            extents.push_back(Traits::componentCount);
        group.addDataset({name, typeid(typename Traits::Component), std::move(extents), std::string(element),
                          options_.Compression},
                         std::as_bytes(std::span(typed->base_vector())), [this] { tick(); });
    });
}

Group BundleFileWriting::addNamed(const Group& group, const std::string& name, const char* what) const {
    requireFit(group, name, what);
    return group.addGroup(name);
}

void BundleFileWriting::requireFit(const Group& group, const std::string& name, const char* what) const {
    if (const auto fault = nameFault(name); !fault.empty())
        fail(group, name, "the " + std::string(what) + " name " + std::string(fault));
}

void BundleFileWriting::fail(const Group& group, const std::string& name, const std::string& what) const {
    throw Anchor::ModelError(path_ + ": " + Anchor::printable(group.path() + "/" + name) + ": " + what);
}

} // namespace

void writeBundleFileHere(const Sheaf::Bundle& bundle, const std::string& path,
                         const BundleFileWriteOptions& options) {
    Hdf5::NewFile file(path);
    BundleFileWriting(bundle, path, options).writeBundle(bundle, file.root());
    file.close();
}

} // namespace Tidewatch
