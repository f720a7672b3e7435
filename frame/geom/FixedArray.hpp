// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>

namespace Geom {

/// N values of one type, stored side by side without padding: the plain carrier of components that have no
/// geometrical meaning of their own.
template <class T, std::size_t N>
struct FixedArray : std::array<T, N> {};

} // namespace Geom
