// SPDX-License-Identifier: Apache-2.0
#include "library/view/chooseByCells.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <limits>

namespace Tidewatch {

namespace {

using Geom::PhysicalSpace;

/// The number of bisections of an axis: three axes need 63 bits.
constexpr unsigned depth = 21;

/// A point with its place on a Morton curve: the bits of the three cell indices, interleaved.
struct Placed {
    std::uint64_t place;
    std::uint32_t point;
};

/// Spreads 21 bits to every third one.
std::uint64_t spread(std::uint64_t bits) {
    bits = (bits | bits << 32) & 0x001F'0000'0000'FFFF;
    bits = (bits | bits << 16) & 0x001F'0000'FF00'00FF;
    bits = (bits | bits << 8) & 0x100F'00F0'0F00'F00F;
    bits = (bits | bits << 4) & 0x10C3'0C30'C30C'30C3;
    return (bits | bits << 2) & 0x1249'2492'4924'9249;
}

bool isFinite(const PhysicalSpace::point& p) {
    return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

std::vector<Placed> placed(std::span<const PhysicalSpace::point> points) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    PhysicalSpace::point low{infinity, infinity, infinity};
    PhysicalSpace::point high{-infinity, -infinity, -infinity};
    for (const auto& p : points) {
        if (!isFinite(p))
            continue;
        low = {std::min(low.x, p.x), std::min(low.y, p.y), std::min(low.z, p.z)};
        high = {std::max(high.x, p.x), std::max(high.y, p.y), std::max(high.z, p.z)};
    }
    const double extent = std::max({high.x - low.x, high.y - low.y, high.z - low.z});
    constexpr double cells = 1U << depth;
    // If the extent overflows, all points are in one cell.
    const double perUnit = extent > 0 && std::isfinite(extent) ? cells / extent : 0;
    const auto cell = [&](double value, double start) {
        const double place = (value - start) * perUnit;
        // An extent that overflows gives NaN, too.
        return place > 0 ? static_cast<std::uint64_t>(std::min(place, cells - 1)) : std::uint64_t{0};
    };
    std::vector<Placed> list;
    list.reserve(points.size());
    for (std::size_t i = 0; i < points.size(); ++i) {
        const auto& p = points[i];
        if (isFinite(p))
            list.push_back(
                {spread(cell(p.x, low.x)) | spread(cell(p.y, low.y)) << 1 | spread(cell(p.z, low.z)) << 2,
                 static_cast<std::uint32_t>(i)});
    }
    std::sort(list.begin(), list.end(), [](const Placed& a, const Placed& b) {
        return a.place != b.place ? a.place < b.place : a.point < b.point;
    });
    return list;
}

/// The first bisection that separates two places; depth + 1 for equal ones.
unsigned partingDepth(std::uint64_t a, std::uint64_t b) {
    const std::uint64_t difference = a ^ b;
    if (difference == 0)
        return depth + 1;
    const auto bit = static_cast<unsigned>(std::bit_width(difference)) - 1;
    return depth - bit / 3;
}

} // namespace

std::uint64_t scrambled(std::uint64_t number) noexcept {
    number += 0x9E37'79B9'7F4A'7C15;
    number = (number ^ number >> 30) * 0xBF58'476D'1CE4'E5B9;
    number = (number ^ number >> 27) * 0x94D0'49BB'1331'11EB;
    return number ^ number >> 31;
}

std::vector<std::uint32_t> chooseByCells(std::span<const PhysicalSpace::point> points, std::uint64_t wanted,
                                         const std::vector<bool>& isKept) {
    const std::vector<Placed> list = placed(points);
    std::vector<std::uint32_t> chosen;
    if (list.size() <= wanted) {
        chosen.reserve(list.size());
        for (const Placed& entry : list)
            chosen.push_back(entry.point);
        return chosen;
    }
    std::vector<bool> take(points.size());
    std::uint64_t left = wanted;
    if (!isKept.empty()) {
        for (const Placed& entry : list) {
            if (left > 0 && isKept[entry.point]) {
                take[entry.point] = true;
                --left;
            }
        }
    }

    // How many cells have points after each bisection.
    std::array<std::uint64_t, depth + 2> cells{};
    for (std::size_t i = 1; i < list.size(); ++i)
        ++cells[partingDepth(list[i - 1].place, list[i].place)];
    cells[0] = 1;
    for (std::size_t level = 1; level < cells.size(); ++level)
        cells[level] += cells[level - 1];
    unsigned coarse = 0;
    while (coarse + 1 < cells.size() && cells[coarse + 1] <= left)
        ++coarse;
    if (left > 0) {
        // One point of every coarse cell, and of as many of the fine cells within them as there is room for.
        // The choice within a cell is random, since a pattern would be visible.
        const unsigned fine = std::min(coarse + 1, depth + 1);
        const std::uint64_t room = left - cells[coarse];
        const std::uint64_t others = cells[fine] - cells[coarse];
        std::uint64_t carry = 0;
        std::vector<std::uint32_t> ofCell;
        const auto finishCell = [&] {
            const auto first =
                std::min_element(ofCell.begin(), ofCell.end(), [](std::uint32_t a, std::uint32_t b) {
                    return scrambled(a) < scrambled(b);
                });
            for (auto entry = ofCell.begin(); entry != ofCell.end(); ++entry) {
                if (entry == first) {
                    take[*entry] = true;
                } else if (carry += room; carry >= others) {
                    carry -= others;
                    take[*entry] = true;
                }
            }
            ofCell.clear();
        };
        std::size_t begin = 0;
        for (std::size_t i = 1; i <= list.size(); ++i) {
            const unsigned parting = i < list.size() ? partingDepth(list[i - 1].place, list[i].place) : 0;
            if (parting > fine)
                continue;
            const auto best = std::min_element(
                list.begin() + static_cast<std::ptrdiff_t>(begin),
                list.begin() + static_cast<std::ptrdiff_t>(i),
                [](const Placed& a, const Placed& b) { return scrambled(a.point) < scrambled(b.point); });
            ofCell.push_back(best->point);
            begin = i;
            if (parting <= coarse)
                finishCell();
        }
    }
    chosen.reserve(wanted);
    for (const Placed& entry : list) {
        if (take[entry.point])
            chosen.push_back(entry.point);
    }
    return chosen;
}

} // namespace Tidewatch
