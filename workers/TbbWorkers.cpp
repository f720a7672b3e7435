// SPDX-License-Identifier: Apache-2.0
#include "workers/TbbWorkers.hpp"

#include <atomic>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>

#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/task_arena.h>

namespace Tidewatch {

namespace {

class TbbWorkers final : public Anchor::Workers {
public:
    explicit TbbWorkers(unsigned count) : count_(count), arena_(static_cast<int>(count)) {}

    [[nodiscard]] unsigned count() const noexcept override { return count_; }

    void run(std::size_t pieces, const std::function<void(std::size_t)>& piece) override {
        std::atomic<std::size_t> next = 0;
        // Each takes the next piece as soon as it has finished one, since pieces differ in length; the library would
        // give each a part of the range.
        const auto work = [&](unsigned) {
            for (std::size_t i = next++; i < pieces; i = next++)
                piece(i);
        };
        // Only now: the least of all limits that exist counts, and workers may exist that are never used.
        std::call_once(limited_,
                       [this] { threads_.emplace(tbb::global_control::max_allowed_parallelism, count_); });
        arena_.execute([&] { tbb::parallel_for(0U, count_, work, tbb::simple_partitioner()); });
    }

private:
    unsigned count_;
    /// By itself the library starts no more threads than there are processors.
    std::optional<tbb::global_control> threads_;
    std::once_flag limited_;
    tbb::task_arena arena_;
};

} // namespace

Anchor::StrongPtr<Anchor::Workers> makeWorkers(unsigned count) {
    return count > 1 ? Anchor::StrongPtr<Anchor::Workers>(Anchor::makeStrong<TbbWorkers>(count)) : nullptr;
}

} // namespace Tidewatch
