// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

namespace Tidewatch {

/// Gives the memory of each array of half a megabyte or more back to the system as soon as the array is freed, so that the
/// process needs no more than the limit of the memory cache and what else it holds. The GNU C library keeps freed
/// blocks of up to 32 MiB instead, among which others soon lie: over a hundred MiB for a page of a large survey. All
/// threads share the freed smaller blocks; otherwise each thread would keep some 20 MiB. These are settings of the whole
/// process, so programs make this call, not libraries. It does nothing with other C libraries.
TIDEWATCH_API void giveFreedArraysBack() noexcept;

} // namespace Tidewatch
