// SPDX-License-Identifier: Apache-2.0
#include "pcd/heightQuantiles.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace ExportLib {

namespace {

using Heights = std::vector<double>::iterator;

void select(Heights begin, Heights nth, Heights end, const StopQuestion& mayGoOn) {
    std::size_t calls = 0;
    if (mayGoOn)
        std::nth_element(begin, nth, end, AskingLess(mayGoOn, calls));
    else
        std::nth_element(begin, nth, end);
}

} // namespace

HeightQuantiles heightQuantiles(const std::vector<Geom::PhysicalSpace::point>& points,
                                const StopQuestion& mayGoOn) {
    if (points.empty())
        return {};
    std::vector<double> heights;
    heights.reserve(points.size());
    inBlocks(points.size(), mayGoOn, [&](std::size_t begin, std::size_t end) {
        for (std::size_t i = begin; i < end; ++i)
            heights.push_back(points[i].z);
    });

    // "Less than" is not an ordering with NaN, so NaN heights are moved to the end first.
    const auto numbersEnd =
        std::partition(heights.begin(), heights.end(), [](double z) { return !std::isnan(z); });
    const auto k = static_cast<std::ptrdiff_t>(heights.size() / 20);
    const auto low = heights.begin() + k;
    const auto high = heights.begin() + 19 * k;
    if (low < numbersEnd)
        select(heights.begin(), low, numbersEnd, mayGoOn);
    // Entries after the low one are not below it, so the search for the high one can start there.
    if (low < high && high < numbersEnd)
        select(low + 1, high, numbersEnd, mayGoOn);
    return {*low, *high};
}

} // namespace ExportLib
