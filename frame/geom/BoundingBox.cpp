// SPDX-License-Identifier: Apache-2.0
#include "geom/BoundingBox.hpp"

namespace Geom {

BoundingBox::~BoundingBox() = default;

bool BoundingBox::empty() const noexcept {
    return lower_.x > upper_.x && lower_.y > upper_.y && lower_.z > upper_.z;
}

void BoundingBox::expand(const BoundingBox& other) noexcept {
    // Axis by axis: the inverted corners of an empty axis would otherwise be taken for coordinates.
    const auto join = [](double& low, double& high, double otherLow, double otherHigh) {
        if (otherLow <= otherHigh) {
            expandAxis(low, high, otherLow);
            expandAxis(low, high, otherHigh);
        }
    };
    join(lower_.x, upper_.x, other.lower_.x, other.upper_.x);
    join(lower_.y, upper_.y, other.lower_.y, other.upper_.y);
    join(lower_.z, upper_.z, other.lower_.z, other.upper_.z);
}

} // namespace Geom
