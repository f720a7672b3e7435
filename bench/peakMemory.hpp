// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <cstdio>
#include <exception>
#include <functional>
#include <stdexcept>
#include <unistd.h>

#include <fmt/format.h>
#include <sys/resource.h>
#include <sys/wait.h>

namespace Bench {

/// Does the work in its own process; returns the peak of its resident memory in bytes. Throws std::runtime_error if it
/// fails. To be called while the own process is small, since the other one begins as a copy of it.
inline std::uint64_t peakMemoryOf(const std::function<void()>& work) {
    std::fflush(stdout);
    const pid_t child = ::fork();
    if (child == 0) {
        int status = 0;
        try {
            work();
        } catch (const std::exception& error) {
            fmt::print(stderr, "{}\n", error.what());
            status = 1;
        }
        std::fflush(stdout);
        std::_Exit(status);
    }
    int status = 0;
    rusage usage{};
    if (child < 0 || ::wait4(child, &status, 0, &usage) != child || status != 0)
        throw std::runtime_error("the measured process failed");
    return static_cast<std::uint64_t>(usage.ru_maxrss) * 1024;
}

inline double mebibytes(std::uint64_t bytes) {
    return static_cast<double>(bytes) / 1048576.0;
}

} // namespace Bench
