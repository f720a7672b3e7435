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

    /// The coordinate reference system as well-known text (OGC 01-009 or ISO 19162) as it was read or made; empty where
    /// none is known. To be set before others see the chart. x is the easting or longitude, whatever order of axes the
    /// text states.
    [[nodiscard]] const std::string& referenceSystem() const noexcept { return referenceSystem_; }
    void setReferenceSystem(std::string wellKnownText) { referenceSystem_ = std::move(wellKnownText); }

private:
    std::string name_;
    std::string referenceSystem_;
};

} // namespace Sheaf
