// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

#include <array>
#include <cstddef>
#include <type_traits>

namespace Geom {

/// N components of a number type.
template <class T, std::size_t N>
struct TIDEWATCH_API Vector : std::array<T, N> {};

/// A colour of three channels: red, green, blue.
template <class T>
struct TIDEWATCH_API RGB : Vector<T, 3> {
    [[nodiscard]] constexpr T red() const { return (*this)[0]; }
    [[nodiscard]] constexpr T green() const { return (*this)[1]; }
    [[nodiscard]] constexpr T blue() const { return (*this)[2]; }
};

/// A vector interpreted in a domain: `DomainVector<Vector<T, 3>, RGB, T>` and `RGB<T>` are the same type, so
/// that every exporter accepts the same colour fields, whichever of the two names it uses.
template <class VectorType, template <class> class Domain, class T>
requires std::is_base_of_v<VectorType, Domain<T>>
using DomainVector = Domain<T>;

static_assert(std::is_same_v<DomainVector<Vector<unsigned char, 3>, RGB, unsigned char>, RGB<unsigned char>>);
static_assert(sizeof(RGB<unsigned char>) == 3 && std::is_trivially_copyable_v<RGB<unsigned char>>);

} // namespace Geom
