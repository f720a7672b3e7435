// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/ReferenceBase.hpp"

#include <algorithm>
#include <limits>
#include <vector>

namespace Geom {

/// A list of closed value ranges with a membership test.
///
/// The test is tolerant by `tolerance` at both ends, so that a value computed in floating point meets the
/// bound it was meant to meet. A list without ranges holds nothing.
template <class T>
class TIDEWATCH_API MultiRange : public Anchor::ReferenceBase<MultiRange<T>> {
public:
    /// Both ends belong to the range.
    struct Range {
        T low;
        T high;
    };

    static constexpr T tolerance = T(1e-9);

    /// Adds [low, high] behind the ranges that are there. A range with low > high holds at most what the
    /// tolerance leaves of it.
    void add(T low, T high) {
        ranges_.push_back({low, high});
        low_ = std::min(low_, low);
        high_ = std::max(high_, high);
    }

    /// The ranges in the order in which they were added; valid until the next change.
    [[nodiscard]] const std::vector<Range>& ranges() const noexcept { return ranges_; }

    [[nodiscard]] bool empty() const noexcept { return ranges_.empty(); }

    /// Whether the value lies in one of the ranges; linear in their number. A value that is not a number lies
    /// in none.
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
