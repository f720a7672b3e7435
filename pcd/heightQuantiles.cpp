// SPDX-License-Identifier: Apache-2.0
#include "pcd/heightQuantiles.hpp"

#include <algorithm>
#include <cmath>

namespace ExportLib {

HeightQuantiles heightQuantiles(const std::vector<Geom::PhysicalSpace::point>& points) {
    if (points.empty())
        return {};
    std::vector<double> heights;
    heights.reserve(points.size());
    for (const Geom::PhysicalSpace::point& p : points)
        heights.push_back(p.z);

    // "Less than" alone orders no list that holds not-a-number, so these go to the end first.
    const auto numbersEnd =
        std::partition(heights.begin(), heights.end(), [](double z) { return !std::isnan(z); });
    const auto k = static_cast<std::ptrdiff_t>(heights.size() / 20);
    const auto low = heights.begin() + k;
    const auto high = heights.begin() + 19 * k;
    if (low < numbersEnd)
        std::nth_element(heights.begin(), low, numbersEnd);
    // What stands behind the low entry is not below it, so the search for the high one can begin there.
    if (low < high && high < numbersEnd)
        std::nth_element(low + 1, high, numbersEnd);
    return {*low, *high};
}

} // namespace ExportLib
