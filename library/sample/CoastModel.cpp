// SPDX-License-Identifier: Apache-2.0
#include "library/sample/CoastModel.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace Tidewatch {

namespace {

/// Mixes the bits of a number so that consecutive numbers give uncorrelated results (the finaliser of
/// SplitMix64, after Steele, Lea and Flood, "Fast splittable pseudorandom number generators", 2014).
std::uint64_t scatter(std::uint64_t number) noexcept {
    number = (number ^ (number >> 30)) * 0xbf58476d1ce4e5b9U;
    number = (number ^ (number >> 27)) * 0x94d049bb133111ebU;
    return number ^ (number >> 31);
}

/// From 0 at low to 1 at high, level at both ends.
double smoothStep(double low, double high, double value) noexcept {
    const double t = std::clamp((value - low) / (high - low), 0.0, 1.0);
    return t * t * (3.0 - 2.0 * t);
}

/// A cross-section of the coast: heights at distances from the sea, joined by straight lines.
struct Knot {
    double y;
    double height;
};
constexpr std::array<Knot, 12> profile{{{0, -6.0},
                                        {180, -2.6},
                                        {250, -1.7},
                                        {420, 0.6},
                                        {500, 2.2},
                                        {540, 4.0},
                                        {600, 3.4},
                                        {640, 2.0},
                                        {668, 7.2},
                                        {676, 7.2},
                                        {706, 1.2},
                                        {800, 1.0}}};

double profileHeight(double y) noexcept {
    for (std::size_t i = 1; i < profile.size(); ++i) {
        if (y <= profile[i].y) {
            const double share = (y - profile[i - 1].y) / (profile[i].y - profile[i - 1].y);
            return profile[i - 1].height + share * (profile[i].height - profile[i - 1].height);
        }
    }
    return profile.back().height;
}

/// How deep the channels of the flat are cut at a place: winding lines that narrow towards the land.
double channelDepth(double y, double winding, double x) noexcept {
    double depth = 0.0;
    for (const double mouth : {230.0, 610.0, 980.0}) {
        const double distance = std::abs(x - mouth - winding * 90.0);
        const double halfWidth = 4.0 + (440.0 - y) * 0.06;
        if (halfWidth > 4.0 && distance < halfWidth)
            depth = std::max(depth, (1.0 - distance / halfWidth) * halfWidth * 0.08);
    }
    return depth;
}

struct House {
    double x, y, halfLength, halfWidth, eaves;
};
constexpr std::array<House, 4> houses{
    {{210, 748, 9, 5, 4.5}, {246, 762, 6, 4, 3.5}, {705, 740, 12, 6, 5.0}, {1040, 765, 8, 5, 4.0}}};

} // namespace

CountedRandom::CountedRandom(std::uint64_t seed, std::uint64_t stream) noexcept
    : key_(scatter(scatter(seed + 0x9e3779b97f4a7c15U) ^ stream)) {}

std::uint64_t CountedRandom::bits(std::uint64_t number) const noexcept {
    return scatter(key_ + number * 0x9e3779b97f4a7c15U);
}

double CountedRandom::unit(std::uint64_t number) const noexcept {
    return static_cast<double>(bits(number) >> 11) * 0x1p-53;
}

CoastModel::CoastModel(std::uint64_t seed) noexcept : random_(seed, 0xc0a57) {}

double CoastModel::noise(double x, double y, double scale, std::uint64_t layer) const noexcept {
    const double column = std::floor(x / scale);
    const double row = std::floor(y / scale);
    const auto corner = [&](double dx, double dy) {
        // Coordinates are at most some kilometres, so both numbers fit 24 bits.
        const auto i = static_cast<std::uint64_t>(static_cast<std::int64_t>(column + dx) + 0x800000);
        const auto j = static_cast<std::uint64_t>(static_cast<std::int64_t>(row + dy) + 0x800000);
        return random_.unit(layer << 48 | i << 24 | j) * 2.0 - 1.0;
    };
    const double u = smoothStep(0.0, 1.0, x / scale - column);
    const double v = smoothStep(0.0, 1.0, y / scale - row);
    const double low = corner(0, 0) + u * (corner(1, 0) - corner(0, 0));
    const double high = corner(0, 1) + u * (corner(1, 1) - corner(0, 1));
    return low + v * (high - low);
}

CoastModel::Ground CoastModel::ground(double x, double y) const noexcept {
    // The shoreline meanders, the dyke is straight.
    const double swing = noise(x, 0.0, 260.0, 1) * 28.0 * (1.0 - smoothStep(560.0, 640.0, y));
    double height = profileHeight(std::clamp(y + swing, 0.0, width));
    if (y < 440.0) {
        height += noise(x, y, 45.0, 2) * 0.25;
        height -= channelDepth(y, noise(0.0, y, 120.0, 3), x);
        return {height, height < -1.8 ? Cover::Seabed : Cover::Flat};
    }
    if (y < 515.0)
        return {height + noise(x, y, 12.0, 4) * 0.12, Cover::Beach};
    if (y < 640.0) {
        const double ridge = smoothStep(515.0, 560.0, y) * (1.0 - smoothStep(600.0, 640.0, y));
        height += ridge * (3.2 * noise(x, y, 42.0, 5) + 1.3 * noise(x, y, 14.0, 6) + 2.4);
        return {height, Cover::Dune};
    }
    if (y < 706.0)
        return {height, Cover::Dyke};
    const double toDitch = std::abs(x - std::floor(x / 150.0 + 0.5) * 150.0);
    if (toDitch < 2.5)
        return {height - 1.4 * (1.0 - toDitch / 2.5), Cover::Ditch};
    return {height + noise(x, y, 30.0, 7) * 0.15, Cover::Meadow};
}

double CoastModel::plants(double x, double y, Cover cover) const noexcept {
    if (cover == Cover::Dune) {
        const double shrubs = noise(x, y, 9.0, 8) - 0.25;
        return shrubs > 0.0 ? 0.3 + 3.0 * shrubs : 0.0;
    }
    if (cover == Cover::Meadow && roof(x, y) == 0.0) {
        const double trees = noise(x, y, 17.0, 9) - 0.55;
        return trees > 0.0 ? 3.0 + 22.0 * trees : 0.0;
    }
    return 0.0;
}

double CoastModel::roof(double x, double y) noexcept {
    for (const House& house : houses) {
        const double across = std::abs(y - house.y);
        if (std::abs(x - house.x) <= house.halfLength && across <= house.halfWidth)
            return house.eaves + (house.halfWidth - across) * 0.8;
    }
    return 0.0;
}

double CoastModel::water(double x, double y, double tide) const noexcept {
    return tide + noise(x, y, 6.0, 10) * 0.08 + noise(x, y, 40.0, 11) * 0.05;
}

bool CoastModel::isCovered(double x, double y) noexcept {
    return x + 2.0 * y >= 160.0;
}

} // namespace Tidewatch
