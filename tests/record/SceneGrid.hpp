// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "record/RecordingCreator.hpp"
#include "sheaf/Bundle.hpp"
#include "sheaf/MemArray.hpp"
#include "sheaf/UniformCartesianArray.hpp"
#include "support/BundleBuilder.hpp"

#include <string>
#include <utility>
#include <vector>

namespace Record {

/// Builds one grid whose creators record; each goes by grid, time, skeleton, chart, field and fragment.
class SceneGrid {
public:
    /// Adds a grid without any skeleton.
    SceneGrid(Recorder& recorder, Sheaf::Bundle& bundle, double time, const std::string& name)
        : recorder_(&recorder),
          grid_(bundle.makeSlice(time)->makeGrid(name)),
          name_(name + "@" + number(time)) {}

    /// Goes on with a new skeleton, in the standard chart.
    SceneGrid& skeleton(std::vector<int> refinement = {}, int exclusionMark = 0, int dimension = 0) {
        skeletonName_ = std::to_string(dimension) + "(";
        for (std::size_t i = 0; i < refinement.size(); ++i)
            skeletonName_ += (i != 0 ? "," : "") + std::to_string(refinement[i]);
        skeletonName_ += ")";
        skeleton_ = grid_->skeletons().make({dimension, std::move(refinement)}, exclusionMark);
        return chart(std::string(Sheaf::Grid::standardChart));
    }

    /// Goes on in another chart of the skeleton; its representation is made with the first field.
    SceneGrid& chart(const std::string& name) {
        chart_ = name;
        space_.reset();
        representation_.reset();
        return *this;
    }
    /// Goes on with what the skeleton's fields are on another skeleton, under a name of the caller's.
    SceneGrid& within(Anchor::StrongPtr<Sheaf::Skeleton> other, const std::string& name) {
        chart(name);
        space_ = std::move(other);
        return *this;
    }

    /// Adds a field, where it is not there, to the representation.
    Anchor::StrongPtr<Sheaf::Field> field(const std::string& name, const std::type_info& elementType) {
        if (!representation_)
            representation_ =
                skeleton_->representations().make(space_ ? space_ : grid_->makeCartesianChart(chart_, 0));
        auto target = representation_->findField(name.c_str());
        return target ? target : representation_->makeField(name, elementType);
    }
    template <class T>
    SceneGrid& emptyField(const std::string& name) {
        field(name, typeid(T));
        return *this;
    }

    /// Adds a fragment with all there is to say about its creator; the empty name stands for no fragment.
    SceneGrid& scripted(const std::string& name, const std::string& fragment,
                        const std::type_info& elementType, std::optional<Sheaf::Extents> extents,
                        std::vector<Outcome> outcomes) {
        const std::string label = name_ + "/" + skeletonName_ + "/" + shortName(chart_) + "/" + name +
                                  (fragment.empty() ? "" : "#" + fragment);
        field(name, elementType)
            ->addFragment(fragment.empty() ? nullptr : grid_->makeFragment(fragment),
                          Anchor::makeStrong<RecordingCreator>(*recorder_, label, elementType, extents,
                                                               std::move(outcomes)));
        return *this;
    }
    template <class T>
    SceneGrid& data(const std::string& name, const std::string& fragment, const Sheaf::Extents& extents,
                    std::vector<T> elements) {
        return scripted(name, fragment, typeid(T), extents,
                        {{Sheaf::makeArray(extents, std::move(elements))}});
    }
    template <class T>
    SceneGrid& data(const std::string& name, const std::string& fragment, std::vector<T> elements) {
        const Sheaf::Extents extents{elements.size()};
        return data(name, fragment, extents, std::move(elements));
    }
    template <class T>
    SceneGrid& data(const std::string& name, const std::string& fragment, std::initializer_list<T> elements) {
        return data(name, fragment, std::vector<T>(elements));
    }

    /// Positions on a slope.
    SceneGrid& positions(const std::string& fragment, std::size_t count, double start = 0) {
        return data("Positions", fragment, slope(count, start));
    }
    /// Positions on a regular lattice with a spacing of 2 and 2.
    SceneGrid& lattice(const std::string& fragment, const Sheaf::MultiIndex<3>& extents) {
        return scripted("Positions", fragment, typeid(Geom::PhysicalSpace::point), Sheaf::Extents(extents),
                        {{latticeArray(extents)}});
    }

    /// The overlaps of a fragment, which is made when missing.
    SceneGrid& overlaps(const std::string& fragment, const Sheaf::MultiIndex<3>& low,
                        const Sheaf::MultiIndex<3>& high) {
        const auto id = grid_->makeFragment(fragment);
        id->overlapLow = low;
        id->overlapHigh = high;
        return *this;
    }

    [[nodiscard]] static Support::Points slope(std::size_t count, double start = 0) {
        Support::Points points;
        for (std::size_t i = 0; i < count; ++i) {
            const double step = start + static_cast<double>(i);
            points.push_back({step, 2 * step + 0.25, 10 - 0.5 * step});
        }
        return points;
    }
    [[nodiscard]] static Anchor::StrongPtr<Sheaf::MemBase> latticeArray(const Sheaf::MultiIndex<3>& extents) {
        return Anchor::makeStrong<Sheaf::UniformCartesianArray>(
            Geom::PhysicalSpace::point{100.5, 200.25, 3}, Geom::PhysicalSpace::vector{2, 2, 1}, extents);
    }

    [[nodiscard]] Sheaf::Grid& grid() const noexcept { return *grid_; }
    [[nodiscard]] const Anchor::StrongPtr<Sheaf::Skeleton>& current() const noexcept { return skeleton_; }

private:
    static std::string shortName(const std::string& chart) {
        return chart == Sheaf::Grid::standardChart ? "std" : chart;
    }

    Recorder* recorder_;
    Anchor::StrongPtr<Sheaf::Grid> grid_;
    std::string name_;
    std::string skeletonName_;
    std::string chart_;
    Anchor::StrongPtr<Sheaf::BaseSpace> space_;
    Anchor::StrongPtr<Sheaf::Skeleton> skeleton_;
    Anchor::StrongPtr<Sheaf::Representation> representation_;
};

} // namespace Record
