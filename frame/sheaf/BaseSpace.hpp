// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/ReferenceBase.hpp"

#include <string>
#include <utility>

namespace Sheaf {

/// What the fields of a representation are expressed in: a chart, or another skeleton.
class TIDEWATCH_API BaseSpace : public Anchor::ReferenceBase<BaseSpace> {
public:
    ~BaseSpace() override;

    /// The order of base spaces within a skeleton: charts by name, then skeletons by dimension and
    /// refinement.
    [[nodiscard]] bool precedes(const BaseSpace& other) const noexcept;

protected:
    BaseSpace() = default;
};

/// A coordinate system of a grid, known by its name.
class TIDEWATCH_API CartesianChart final : public BaseSpace {
public:
    explicit CartesianChart(std::string name) : name_(std::move(name)) {}
    ~CartesianChart() override;

    [[nodiscard]] const std::string& name() const noexcept { return name_; }

private:
    std::string name_;
};

} // namespace Sheaf
