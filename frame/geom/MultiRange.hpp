// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/ReferenceBase.hpp"

#include <algorithm>
#include <limits>
#include <vector>

namespace Geom {

/// A list of closed value ranges with a membership test.
///
/// The test allows for `tolerance` at both ends, so that a value computed in floating point matches the bound
/// that it was meant to equal. A list without ranges contains nothing.
template <class T>
class TIDEWATCH_API MultiRange : public Anchor::ReferenceBase<MultiRange<T>> {
public:
    /// Both ends belong to the range.
    struct Range {
        T low;
        T high;
    };

    static constexpr T tolerance = T(1e-9);

    /// Appends the range [low, high]. A range with low > high contains at most what the tolerance admits.
    void add(T low, T high) {
        ranges_.push_back({low, high});
        low_ = std::min(low_, low);
        high_ = std::max(high_, high);
    }

    /// The ranges in the order in which they were added; valid until the next change.
    [[nodiscard]] const std::vector<Range>& ranges() const noexcept { return ranges_; }

    [[nodiscard]] bool empty() const noexcept { return ranges_.empty(); }

    /// Whether the value is in one of the ranges; linear in their number. NaN is in none.
    [[nodiscard]] bool contains(T value) const noexcept {
        if (!(value >= low_ - tolerance && value <= high_ + tolerance))
            return false;
        return std::any_of(ranges_.begin(), ranges_.end(), [value](const Range& range) {
            return range.low - tolerance <= value && value <= range.high + tolerance;
        });
    }

private:
    std::vector<Range> ranges_;
    T low_ = std::numeric_limits<T>::infinity();
    T high_ = -std::numeric_limits<T>::infinity();
};

} // namespace Geom
