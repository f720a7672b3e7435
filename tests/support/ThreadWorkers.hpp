// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "anchor/Workers.hpp"

#include <atomic>
#include <cstddef>
#include <functional>
#include <thread>
#include <vector>

namespace Support {

/// Workers that start threads for each call; ThreadSanitizer sees all that they do.
class ThreadWorkers final : public Anchor::Workers {
public:
    explicit ThreadWorkers(unsigned count) : count_(count) {}

    [[nodiscard]] unsigned count() const noexcept override { return count_; }

    void run(std::size_t pieces, const std::function<void(std::size_t)>& piece) override {
        ++calls_;
        std::atomic<std::size_t> next = 0;
        const auto work = [&] {
            for (std::size_t i = next++; i < pieces; i = next++)
                piece(i);
        };
        std::vector<std::jthread> threads;
        for (unsigned i = 1; i < count_ && i < pieces; ++i)
            threads.emplace_back(work);
        work();
    }

    /// How often run() was called.
    [[nodiscard]] std::size_t calls() const noexcept { return calls_; }

private:
    unsigned count_;
    std::atomic<std::size_t> calls_ = 0;
};

/// Null for one, as hosts have it.
[[nodiscard]] inline Anchor::StrongPtr<Anchor::Workers> threadWorkers(unsigned count) {
    return count > 1 ? Anchor::StrongPtr<Anchor::Workers>(Anchor::makeStrong<ThreadWorkers>(count)) : nullptr;
}

} // namespace Support
