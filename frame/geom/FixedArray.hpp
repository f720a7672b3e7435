// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

#include <array>
#include <cstddef>

namespace Geom {

/// N values of one type, stored contiguously: components without a geometrical meaning.
template <class T, std::size_t N>
struct TIDEWATCH_API FixedArray : std::array<T, N> {};

} // namespace Geom
