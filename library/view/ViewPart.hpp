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

/// A column of a part with its name and role.
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

/// Reports how many points have been read.
using TellPoints = std::function<void(std::uint64_t points)>;

/// The candidate points of a skeleton for a view.
class PointPart {
public:
    /// `total` is the number of points that will be passed to take(), `wanted` how many of them a view should
    /// have.
    PointPart(std::vector<ViewField> fields, std::uint64_t total, std::uint64_t wanted);

    /// Takes the points of a fragment; `positions` are all of its positions. Some points of every class are
    /// kept. Calls `mayGoOn` many times a second.
    void take(std::span<const Geom::PhysicalSpace::point> positions,
              const Anchor::StrongPtr<Sheaf::FragmentID>& fragment, const std::function<void()>& mayGoOn);

    /// The memory of the points taken so far.
    [[nodiscard]] std::uint64_t bytes() const;

    /// Chooses at most `wanted` of the points.
    void choose(std::uint64_t wanted);

    [[nodiscard]] std::uint64_t chosen() const noexcept { return chosen_.size(); }

    /// The number of chosen points of each class; all 0 without classes.
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
    /// For each class, the number of points seen, and n, if every n-th of them is taken in any case.
    std::array<std::uint64_t, 256> met_{};
    std::array<std::uint64_t, 256> every_{};
    std::vector<Geom::PhysicalSpace::point> positions_;
    std::vector<std::uint32_t> chosen_;
};

/// The step between rows and columns of a lattice for which at most `wanted` places, or 4, remain.
[[nodiscard]] std::uint64_t latticeStep(std::uint64_t columns, std::uint64_t rows, std::uint64_t wanted);

/// A lattice of a fragment, thinned to every k-th row and column.
class SurfacePart {
public:
    /// `wanted` is approximately the max number of places.
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
