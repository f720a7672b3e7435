// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include <linux/filter.h>

namespace Tidewatch::Apart {

/// How a process gives up all that reading an open file does not need: new privileges, opening files, the network,
/// other programs and processes, writing files, and memory beyond a limit.
class Lockdown {
public:
    /// What is in force; each as far as the kernel has it and the process may.
    struct InForce {
        bool seccomp = false;
        std::uint32_t landlock = 0;
        bool limits = false;
    };

    /// Puts the filter of system calls together, which takes a while: once, for all processes that are forked.
    Lockdown();

    /// Locks this process for good. `most` are the bytes of the largest array that it may be asked for.
    [[nodiscard]] InForce apply(std::uint64_t most) const;

private:
    std::vector<sock_filter> filter_;
};

} // namespace Tidewatch::Apart
