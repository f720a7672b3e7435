// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

#include <array>
#include <cstddef>
#include <cstdint>

namespace Sheaf {

/// One unsigned number per axis, x first: the place of an element, the extents of an array, or a count per
/// axis.
template <std::size_t N>
struct TIDEWATCH_API MultiIndex : std::array<std::uint64_t, N> {};

} // namespace Sheaf
