// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include <linux/filter.h>

namespace Tidewatch::Apart {

/// The sandbox: a process gives up all that reading an open file does not need, namely new privileges,
/// opening files, the network, other programs and processes, writing files, and memory beyond a limit.
class Lockdown {
public:
    /// The parts in force: those that the kernel supports and permits.
    struct InForce {
        bool seccomp = false;
        std::uint32_t landlock = 0;
        bool limits = false;
    };

    /// Compiles the filter of system calls; done once for all forked processes, since it takes a while.
    Lockdown();

    /// Locks this process irrevocably. `most` is the size in bytes of the largest array that may be
    /// requested.
    [[nodiscard]] InForce apply(std::uint64_t most) const;

private:
    std::vector<sock_filter> filter_;
};

} // namespace Tidewatch::Apart
