// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sheaf/Bundle.hpp"
#include "sheaf/HeldCreator.hpp"
#include "sheaf/MemArray.hpp"

#include <string>
#include <utility>
#include <vector>

namespace Support {

using Points = std::vector<Geom::PhysicalSpace::point>;

template <class T>
Anchor::StrongPtr<Sheaf::CreativeArrayBase> held(std::vector<T> elements) {
    return Anchor::makeStrong<Sheaf::HeldCreator>(Sheaf::makeArray(std::move(elements)));
}

/// Shorthand for one grid with one skeleton and one representation.
class GridBuilder {
public:
    GridBuilder(Sheaf::Bundle& bundle, double time, const std::string& name, std::vector<int> refinement = {},
                int exclusionMark = 0)
        : grid_(bundle.makeSlice(time)->makeGrid(name)) {
        skeleton(std::move(refinement), exclusionMark);
    }

    /// Goes on with another skeleton of the grid.
    GridBuilder& skeleton(std::vector<int> refinement, int exclusionMark = 0, int dimension = 0) {
        skeleton_ = grid_->skeletons().make({dimension, std::move(refinement)}, exclusionMark);
        return chart(std::string(Sheaf::Grid::standardChart));
    }

    /// Goes on in another chart of the current skeleton.
    GridBuilder& chart(const std::string& name) {
        representation_ = skeleton_->representations().make(grid_->makeCartesianChart(name, 0));
        return *this;
    }

    /// Adds data to a field, made when missing; an empty fragment name stands for data without a fragment.
    template <class T>
    GridBuilder& field(const std::string& name, const std::string& fragment, std::vector<T> elements) {
        return field(name, fragment, held(std::move(elements)));
    }
    GridBuilder& field(const std::string& name, const std::string& fragment,
                       Anchor::StrongPtr<Sheaf::CreativeArrayBase> data) {
        auto target = representation_->findField(name.c_str());
        if (!target)
            target = representation_->makeField(name, data->elementType());
        target->addFragment(fragment.empty() ? nullptr : grid_->makeFragment(fragment), std::move(data));
        return *this;
    }

    [[nodiscard]] Sheaf::Grid& grid() const { return *grid_; }
    [[nodiscard]] Anchor::StrongPtr<Sheaf::Skeleton> currentSkeleton() const { return skeleton_; }
    [[nodiscard]] Anchor::StrongPtr<Sheaf::Representation> representation() const { return representation_; }

private:
    Anchor::StrongPtr<Sheaf::Grid> grid_;
    Anchor::StrongPtr<Sheaf::Skeleton> skeleton_;
    Anchor::StrongPtr<Sheaf::Representation> representation_;
};

} // namespace Support
