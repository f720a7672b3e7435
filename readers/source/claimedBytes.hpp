// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace Tidewatch {

/// The bytes of an array as a file states it, for comparison with ReadOptions::MaximumArrayBytes; nullopt if
/// they exceed 64 bits. An extent of 0 counts as 1: an array without elements takes no memory, but going
/// through its rows takes time, and text exporters write a line for each of them.
[[nodiscard]] std::optional<std::uint64_t> claimedBytes(std::span<const std::uint64_t> extents,
                                                        std::uint64_t elementSize);

} // namespace Tidewatch
