// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

#include <type_traits>

namespace Geom {

/// Tag of the three-dimensional Cartesian coordinate system (orthogonal x, y, z with the same unit).
struct TIDEWATCH_API Cartesian3D {};

/// The geometrical quantities of a coordinate system, each a separate type, so that a position cannot be used
/// as a direction. Components are public and nothing else is stored, so an array of them is an array of T.
template <class System, class T>
struct TIDEWATCH_API Coordinates;

template <class T>
struct TIDEWATCH_API Coordinates<Cartesian3D, T> {
    /// A difference of positions, in coordinate units.
    struct TIDEWATCH_API vector {
        T x{}, y{}, z{};
        friend bool operator==(const vector&, const vector&) = default;
    };

    /// A position, in coordinate units.
    struct TIDEWATCH_API point {
        T x{}, y{}, z{};
        friend bool operator==(const point&, const point&) = default;

        friend point operator-(const point& p, const vector& v) { return {p.x - v.x, p.y - v.y, p.z - v.z}; }
        friend point operator+(const point& p, const vector& v) { return {p.x + v.x, p.y + v.y, p.z + v.z}; }
        friend vector operator-(const point& a, const point& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
    };

    /// An oriented plane element (a surface normal with the area as its length); components yz, zx, xy.
    struct TIDEWATCH_API bivector {
        T x{}, y{}, z{};
        friend bool operator==(const bivector&, const bivector&) = default;
    };

    static_assert(sizeof(point) == 3 * sizeof(T) && std::is_trivially_copyable_v<point>);
    static_assert(sizeof(vector) == 3 * sizeof(T) && std::is_trivially_copyable_v<vector>);
    static_assert(sizeof(bivector) == 3 * sizeof(T) && std::is_trivially_copyable_v<bivector>);
};

} // namespace Geom
