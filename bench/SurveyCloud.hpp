// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "geom/PhysicalSpace.hpp"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numbers>
#include <random>
#include <utility>
#include <vector>

namespace Bench {

/// A made-up airborne survey of one square kilometre around the origin, about 40 m high: coordinates in
/// millimetres as surveys have them, the points in the order in which a swinging mirror meets them. The same
/// for the same count.
struct SurveyCloud {
    std::vector<Geom::PhysicalSpace::point> points;
    std::vector<unsigned short> intensities;

    explicit SurveyCloud(std::size_t count) {
        std::mt19937_64 random(20);
        std::uniform_real_distribution<double> noise(-0.02, 0.02);
        const auto lines = static_cast<std::size_t>(std::sqrt(static_cast<double>(count)));
        points.reserve(count);
        intensities.reserve(count);
        for (std::size_t i = 0; i < count; ++i) {
            const double along = static_cast<double>(i) / static_cast<double>(count);
            const double swing = static_cast<double>(i % lines) / static_cast<double>(lines);
            const double across = std::cos(std::numbers::pi * swing);
            const double x = 500.0 * across + noise(random);
            const double y = 1000.0 * along - 500.0 + noise(random);
            const double ground =
                6.0 * std::sin(x * 0.012) + 4.0 * std::cos(y * 0.017) + 0.3 * std::sin(x * 0.4);
            const bool isTree = random() % 5 == 0 && std::sin(x * 0.03) * std::sin(y * 0.02) > 0.2;
            const double height = isTree ? static_cast<double>(random() % 20000) * 0.001 : noise(random);
            points.push_back({millimetres(x), millimetres(y), millimetres(ground + height)});
            const double reflected = 900.0 + 500.0 * std::sin(x * 0.05 + y * 0.07) + 2000.0 * noise(random);
            intensities.push_back(static_cast<unsigned short>(isTree ? reflected * 0.4 : reflected));
        }
    }

    void shuffle() {
        std::mt19937_64 random(21);
        for (std::size_t i = points.size(); i > 1; --i) {
            const std::size_t j = random() % i;
            std::swap(points[i - 1], points[j]);
            std::swap(intensities[i - 1], intensities[j]);
        }
    }

private:
    static double millimetres(double value) { return std::round(value * 1000.0) / 1000.0; }
};

} // namespace Bench
