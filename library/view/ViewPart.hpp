// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "geom/PhysicalSpace.hpp"
#include "library/Progress.hpp"
#include "library/view/ViewColumn.hpp"
#include "library/view/ViewFields.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Tidewatch {

/// A column of a part with what the page says about it.
struct NamedColumn {
    std::string name;
    std::string role;
    std::unique_ptr<ViewColumn> values;
};

/// A packed column with its name and role.
struct NamedPack {
    std::string name;
    std::string role;
    PackedColumn column;
};

/// What a part of a view says how far its reading has come.
using TellPoints = std::function<void(std::uint64_t points)>;

/// The points of a skeleton, as far as they come into question for a view.
class PointPart {
public:
    /// `total` is the number of points that are going to be taken, `wanted` how many of them a view is to have.
    PointPart(std::vector<ViewField> fields, std::uint64_t total, std::uint64_t wanted);

    /// Takes the points of a fragment; `positions` are all of its positions. Every class keeps some of its points. Calls
    /// `mayGoOn` many times a second.
    void take(std::span<const Geom::PhysicalSpace::point> positions,
              const Anchor::StrongPtr<Sheaf::FragmentID>& fragment, const std::function<void()>& mayGoOn);

    /// Chooses at most so many of the points.
    void choose(std::uint64_t wanted);

    [[nodiscard]] std::uint64_t chosen() const noexcept { return chosen_.size(); }

    /// How often each class comes among the chosen points; all 0 without classes.
    [[nodiscard]] std::array<std::uint64_t, 256> classes() const;

    /// The columns of the chosen points, positions first.
    [[nodiscard]] std::vector<NamedPack> pack() const;

private:
    [[nodiscard]] std::vector<bool> keptForClasses(std::uint64_t wanted) const;

    std::vector<ViewField> fields_;
    std::vector<NamedColumn> columns_;
    const ViewColumn* classes_ = nullptr;
    Anchor::StrongPtr<Sheaf::Field> classField_;
    std::uint64_t threshold_;
    std::uint64_t seen_ = 0;
    /// How many points of each class have been met, and every which of them is taken whatever the others do.
    std::array<std::uint64_t, 256> met_{};
    std::array<std::uint64_t, 256> every_{};
    std::vector<Geom::PhysicalSpace::point> positions_;
    std::vector<std::uint32_t> chosen_;
};

/// Every which row and column of a lattice is taken so that there are no more than so many places (but 4 in any case).
[[nodiscard]] std::uint64_t latticeStep(std::uint64_t columns, std::uint64_t rows, std::uint64_t wanted);

/// A lattice of a fragment, thinned to every k-th row and column.
class SurfacePart {
public:
    /// `wanted` is how many places a view is to have about at most.
    SurfacePart(const std::vector<ViewField>& fields, const Sheaf::Representation& representation,
                const Sheaf::UniformCartesianArray& lattice,
                const Anchor::StrongPtr<Sheaf::FragmentID>& fragment, std::uint64_t wanted);

    /// Keeps only every `step`-th of the rows and columns that were taken.
    void thin(std::uint64_t step);

    [[nodiscard]] std::uint64_t chosen() const noexcept { return chosen_.size(); }
    [[nodiscard]] std::array<std::uint64_t, 2> extents() const noexcept { return extents_; }
    [[nodiscard]] std::array<double, 2> origin() const noexcept { return origin_; }
    [[nodiscard]] std::array<double, 2> spacing() const noexcept { return spacing_; }
    [[nodiscard]] const std::string& height() const noexcept { return height_; }

    [[nodiscard]] std::vector<NamedPack> pack() const;

private:
    std::vector<NamedColumn> columns_;
    std::vector<bool> holes_;
    std::string height_;
    std::uint64_t taken_ = 1;
    std::array<std::uint64_t, 2> all_{};
    std::array<std::uint64_t, 2> extents_{};
    std::array<double, 2> origin_{};
    std::array<double, 2> taken0_{};
    std::array<double, 2> spacing_{};
    std::vector<std::uint32_t> chosen_;
};

} // namespace Tidewatch
