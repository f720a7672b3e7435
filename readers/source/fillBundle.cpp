// SPDX-License-Identifier: Apache-2.0
#include "readers/source/fillBundle.hpp"

#include "anchor/Error.hpp"
#include "anchor/printable.hpp"
#include "formats/las/layout.hpp"
#include "readers/names.hpp"
#include "readers/source/InputArrayCreator.hpp"
#include "readers/source/claimedBytes.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/HeldCreator.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <algorithm>
#include <cmath>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

/// Fills a bundle. Unless run() completes, the destructor removes what was added.
class Filling {
public:
    Filling(Sheaf::Bundle& bundle, const Structure& structure, const std::shared_ptr<Input>& input)
        : bundle_(bundle),
          structure_(structure),
          input_(input) {}
    ~Filling() {
        if (isDone_)
            return;
        for (const auto& [slice, grid] : addedGrids_)
            slice->removeGrid(grid);
        for (const double time : addedSlices_)
            bundle_.removeSlice(time);
    }
    Filling(const Filling&) = delete;
    Filling& operator=(const Filling&) = delete;

    std::string run() {
        std::string name;
        if (structure_.isSingleGrid) {
            if (structure_.slices.size() != 1 || structure_.slices.front().grids.size() != 1)
                fail("", "does not hold exactly one grid");
            name = gridNameOf(input_->path());
            addGrid(structure_.slices.front().grids.front(), name, *makeSlice(input_->options().SliceTime));
        } else {
            addSlices();
        }
        isDone_ = true;
        return name;
    }

private:
    [[noreturn]] void fail(const std::string& object, const std::string& what) const {
        throw Anchor::FormatError(fmt::format("{}{}{}: {}", Anchor::printable(input_->path()),
                                              object.empty() ? "" : ": ", Anchor::printable(object),
                                              Anchor::printable(what)));
    }

    void requireFit(const std::string& name) const {
        if (const auto fault = nameFault(name); !fault.empty())
            fail("", fmt::format("the name \"{}\" {}", name, fault));
    }

    /// Counts bytes beside fields against Structure::mostPropertyBytes.
    void spend(const std::string& object, std::uint64_t bytes) {
        if (bytes > propertyBytesLeft_)
            fail(object, "has more reference systems, records and the like than are read");
        propertyBytesLeft_ -= bytes;
    }

    const std::type_info& elementOf(const std::string& name, const std::string& object) const {
        const std::type_info* element = nullptr;
        if (!Sheaf::visitElementName(name,
                                     [&](auto tag) { element = &typeid(typename decltype(tag)::type); }))
            fail(object, "has an element type that is not supported: \"" + name + "\"");
        return *element;
    }

    Anchor::StrongPtr<Sheaf::Slice> makeSlice(double time) {
        const auto existing = bundle_.slices().find(time);
        const bool isNew = existing == bundle_.slices().end() || existing->second.expired();
        auto slice = bundle_.makeSlice(time);
        if (isNew)
            addedSlices_.push_back(time);
        return slice;
    }

    void addSlices() {
        std::set<double> times;
        for (const Structure::Slice& slice : structure_.slices) {
            if (!std::isfinite(slice.time) || !times.insert(slice.time).second)
                fail("", "has a slice whose time is not a finite number of its own");
            const auto target = makeSlice(slice.time);
            for (const Structure::Grid& grid : slice.grids) {
                requireFit(grid.name);
                addGrid(grid, grid.name, *target);
            }
        }
    }

    void addGrid(const Structure::Grid& grid, const std::string& name, Sheaf::Slice& slice) {
        const auto target = slice.makeGrid(name, input_->path());
        addedGrids_.emplace_back(&slice, name);
        for (const Structure::Chart& chart : grid.charts) {
            requireFit(chart.name);
            spend(chart.name, chart.referenceSystem.size());
            target->declareCartesianChart(chart.name)->setReferenceSystem(chart.referenceSystem);
        }
        if (const std::string fault = faultOf(grid.statement); !fault.empty())
            fail(name, fault);
        spend(name, propertyBytes(grid.statement));
        target->setStatement(grid.statement);
        for (const Structure::Fragment& fragment : grid.fragments) {
            requireFit(fragment.name);
            const auto id = target->makeFragment(fragment.name);
            if (fragment.overlapLow)
                Sheaf::FragmentLocation<3, Sheaf::FragmentProperty<2>>::set(*id,
                                                                            toIndex(*fragment.overlapLow));
            if (fragment.overlapHigh)
                Sheaf::FragmentLocation<3, Sheaf::FragmentProperty<3>>::set(*id,
                                                                            toIndex(*fragment.overlapHigh));
        }
        for (const Structure::Skeleton& skeleton : grid.skeletons)
            addSkeleton(skeleton, *target);
    }

    static Sheaf::MultiIndex<3> toIndex(const std::array<std::uint64_t, 3>& counts) {
        return {counts[0], counts[1], counts[2]};
    }

    void addSkeleton(const Structure::Skeleton& skeleton, Sheaf::Grid& grid) {
        Anchor::StrongPtr<Sheaf::Skeleton> target;
        try {
            target = grid.skeletons().make({skeleton.dimension, skeleton.refinement}, skeleton.exclusionMark);
        } catch (const Anchor::ModelError& error) {
            fail(skeleton.object, error.what());
        }
        for (const Structure::Representation& representation : skeleton.representations) {
            requireFit(representation.chart);
            const auto chart = grid.makeCartesianChart(representation.chart, 0);
            const auto fields = target->representations().make(chart);
            for (const Structure::Field& field : representation.fields)
                addField(field, grid, *fields);
        }
    }

    void addField(const Structure::Field& field, Sheaf::Grid& grid, Sheaf::Representation& target) {
        requireFit(field.name);
        const std::type_info& element = elementOf(field.element, field.name);
        Anchor::StrongPtr<Sheaf::Field> made;
        try {
            made = target.makeField(field.name, element);
        } catch (const Anchor::ModelError& error) {
            fail(field.name, error.what());
        }
        if (field.encoding) {
            if (const std::string fault = faultOf(*field.encoding); !fault.empty())
                fail(field.name, fault);
            spend(field.name, Formats::Las::ExtraBytes::entrySize);
            made->setEncoding(*field.encoding);
        }
        for (const Structure::Piece& piece : field.pieces) {
            if (piece.fragment)
                requireFit(*piece.fragment);
            if (piece.array.element != field.element || (!piece.fragment && field.pieces.size() != 1))
                fail(piece.array.object, "does not match its field");
            made->addFragment(piece.fragment ? grid.makeFragment(*piece.fragment) : nullptr,
                              piece.lattice ? makeUniform(piece) : makeCreator(piece.array, element));
        }
    }

    Sheaf::Field::Creator makeCreator(const Structure::Array& array, const std::type_info& element) const {
        if (array.extents.empty() || array.extents.size() > Sheaf::Extents::maximumRank)
            fail(array.object, "has no extents that an array of " + array.element + " could have");
        return Anchor::makeStrong<InputArrayCreator>(input_, array, element);
    }

    Sheaf::Field::Creator makeUniform(const Structure::Piece& piece) const {
        const auto& [origin, spacing] = *piece.lattice;
        const auto& extents = piece.array.extents;
        if (piece.array.element != Sheaf::ElementTraits<Sheaf::Element::Point>::name || extents.size() != 3 ||
            !std::all_of(origin.begin(), origin.end(), [](double value) { return std::isfinite(value); }) ||
            !std::all_of(spacing.begin(), spacing.end(),
                         [](double step) { return std::isfinite(step) && step > 0; }))
            fail(piece.array.object, "has invalid uniform positions");
        // A uniform grid itself takes no memory, but traversing it takes the time, and in places the memory,
        // of an array. For rasters, the limit on the values suffices.
        const auto bytes = claimedBytes(extents, sizeof(Sheaf::Element::Point));
        if (!structure_.isSingleGrid && !bytes)
            fail(piece.array.object, "has extents whose product exceeds 64 bits");
        if (!structure_.isSingleGrid && *bytes > input_->options().MaximumArrayBytes)
            throw Anchor::LimitError(
                fmt::format("{}: {}: stands for {} bytes of positions, and {} are allowed",
                            Anchor::printable(input_->path()), Anchor::printable(piece.array.object), *bytes,
                            input_->options().MaximumArrayBytes));
        return Anchor::makeStrong<Sheaf::HeldCreator>(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
            Geom::PhysicalSpace::point{origin[0], origin[1], origin[2]},
            Geom::PhysicalSpace::vector{spacing[0], spacing[1], spacing[2]},
            Sheaf::MultiIndex<3>{extents[0], extents[1], extents[2]}));
    }

    Sheaf::Bundle& bundle_;
    const Structure& structure_;
    const std::shared_ptr<Input>& input_;
    std::vector<double> addedSlices_;
    std::vector<std::pair<Anchor::StrongPtr<Sheaf::Slice>, std::string>> addedGrids_;
    std::uint64_t propertyBytesLeft_ = Structure::mostPropertyBytes;
    bool isDone_ = false;
};

} // namespace

std::string fillBundle(Sheaf::Bundle& bundle, const Structure& structure,
                       const std::shared_ptr<Input>& input) {
    return Filling(bundle, structure, input).run();
}

} // namespace Tidewatch
