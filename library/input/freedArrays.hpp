// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

namespace Tidewatch {

/// Gives the memory of each array of half a megabyte or more back to the system as soon as the array is freed, so that the
/// process needs no more than the limit of the memory cache and what else it holds. The GNU C library keeps freed
/// blocks of up to 32 MiB instead, among which others soon lie: over a hundred MiB for a page of a large survey. What
/// is freed of smaller ones serves all threads; otherwise each keeps some 20 MiB of its own. It is a setting of the whole process, hence for programs to make, not for libraries. Nothing with other C libraries.
TIDEWATCH_API void giveFreedArraysBack() noexcept;

} // namespace Tidewatch
