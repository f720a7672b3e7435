// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

#include <cstdint>
#include <filesystem>
#include <string_view>

namespace Anchor {

/// Bytes of memory that this process may use: the machine's, or less where a control group (of a container or a batch
/// system) or the process's own limit on its address space allows less. The largest number if the system does not
/// tell.
[[nodiscard]] TIDEWATCH_API std::uint64_t processMemory();

/// The limit that control groups set, version 1 or 2: the least of the group's and of those above it. `membership` is
/// what /proc/self/cgroup holds, `root` the folder where the groups are mounted. The largest number without a limit.
/// (Linux kernel documentation, "Control Group v2", memory.max; "Memory Resource Controller", memory.limit_in_bytes.)
[[nodiscard]] TIDEWATCH_API std::uint64_t groupMemory(std::string_view membership,
                                                      const std::filesystem::path& root);

/// Processors that this process may use, at least 1: those that it may run on, or as many as a control group's share of
/// their time makes, rounded up.
[[nodiscard]] TIDEWATCH_API unsigned processCores();

/// The processors that control groups allow, arguments and rules as for groupMemory(); the largest number without a
/// limit. (Linux kernel documentation, "Control Group v2", cpu.max; "CFS Bandwidth Control", cpu.cfs_quota_us.)
[[nodiscard]] TIDEWATCH_API unsigned groupCores(std::string_view membership,
                                                const std::filesystem::path& root);

} // namespace Anchor
