// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/ReferenceBase.hpp"
#include "geom/PhysicalSpace.hpp"

#include <limits>

namespace Geom {

/// An axis-aligned box given by its lower and upper corner, in coordinate units.
///
/// A new box is empty: its corners are inverted, so the first point becomes the box. NaN coordinates are
/// ignored.
class TIDEWATCH_API BoundingBox : public Anchor::ReferenceBase<BoundingBox, Anchor::InterfaceBase> {
public:
    BoundingBox() = default;
    BoundingBox(const PhysicalSpace::point& lower, const PhysicalSpace::point& upper)
        : lower_(lower),
          upper_(upper) {}
    ~BoundingBox() override;

    [[nodiscard]] const PhysicalSpace::point& lower() const noexcept { return lower_; }
    [[nodiscard]] const PhysicalSpace::point& upper() const noexcept { return upper_; }

    /// True until some axis has got a coordinate.
    [[nodiscard]] bool empty() const noexcept;

    /// Extends the box to include p.
    void expand(const PhysicalSpace::point& p) noexcept {
        expandAxis(lower_.x, upper_.x, p.x);
        expandAxis(lower_.y, upper_.y, p.y);
        expandAxis(lower_.z, upper_.z, p.z);
    }

    /// Extends the box to include the other one; an empty other box changes nothing.
    void expand(const BoundingBox& other) noexcept;

private:
    static void expandAxis(double& low, double& high, double value) noexcept {
        low = value < low ? value : low;
        high = value > high ? value : high;
    }

    static constexpr double most = std::numeric_limits<double>::infinity();
    PhysicalSpace::point lower_{most, most, most};
    PhysicalSpace::point upper_{-most, -most, -most};
};

} // namespace Geom
