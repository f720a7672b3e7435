// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace Tidewatch {

/// Counter-based random numbers: the same numbers on every machine, in any order, without a state.
class CountedRandom {
public:
    /// Each pair of seed and stream number has its own random numbers.
    CountedRandom(std::uint64_t seed, std::uint64_t stream) noexcept;

    /// 64 random bits for a number.
    [[nodiscard]] std::uint64_t bits(std::uint64_t number) const noexcept;

    /// A value in [0, 1) for a number.
    [[nodiscard]] double unit(std::uint64_t number) const noexcept;

private:
    std::uint64_t key_;
};

/// A tidal coast, some hundred metres of it: sea bed, tidal flat with channels, beach, dunes with shrubs, a
/// dyke, and a polder with ditches, trees and farmhouses behind it.
///
/// Local coordinates in metres: x along the shore from 0 to `length`, y from the sea (0) to the land
/// (`width`), heights above mean sea level. Arithmetic is limited to operations that IEEE 754 rounds exactly,
/// so that heights repeat bit for bit on every machine.
class CoastModel {
public:
    static constexpr double length = 1200.0;
    static constexpr double width = 800.0;

    explicit CoastModel(std::uint64_t seed) noexcept;

    enum class Cover { Seabed, Flat, Beach, Dune, Dyke, Meadow, Ditch };

    struct Ground {
        double height;
        Cover cover;
    };

    /// The ground, without plants and buildings.
    [[nodiscard]] Ground ground(double x, double y) const noexcept;

    /// The height of plants above the ground; 0 where none grow.
    [[nodiscard]] double plants(double x, double y, Cover cover) const noexcept;

    /// The height above the ground of the roof over a place; 0 if there is no house.
    [[nodiscard]] static double roof(double x, double y) noexcept;

    /// The surface of the water at a tide, with its waves.
    [[nodiscard]] double water(double x, double y, double tide) const noexcept;

    /// Whether the survey covers the place: a corner of the sea is left out.
    [[nodiscard]] static bool isCovered(double x, double y) noexcept;

private:
    [[nodiscard]] double noise(double x, double y, double scale, std::uint64_t layer) const noexcept;

    CountedRandom random_;
};

} // namespace Tidewatch
