// SPDX-License-Identifier: Apache-2.0
#include "workers/TbbWorkers.hpp"

#include "anchor/NeverDestroyed.hpp"

#include <atomic>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/task_arena.h>

namespace Tidewatch {

namespace {

/// Arenas that nobody uses now, by their number of threads. They are kept: on a busy machine the library's threads
/// come late to those that are given up, and a host that opens one file after another would gather them. Two users
/// never share one, since who waits in an arena also runs what others put there, beneath locks of his own.
class IdleArenas {
public:
    std::unique_ptr<tbb::task_arena> take(unsigned count) {
        {
            const std::lock_guard lock(mutex_);
            if (auto& idle = arenas_[count]; !idle.empty()) {
                auto arena = std::move(idle.back());
                idle.pop_back();
                return arena;
            }
        }
        return std::make_unique<tbb::task_arena>(static_cast<int>(count));
    }

    void giveBack(unsigned count, std::unique_ptr<tbb::task_arena> arena) noexcept {
        const std::lock_guard lock(mutex_);
        try {
            arenas_[count].push_back(std::move(arena));
        } catch (const std::bad_alloc&) { // then it is not kept
        }
    }

private:
    std::mutex mutex_;
    std::map<unsigned, std::vector<std::unique_ptr<tbb::task_arena>>> arenas_;
};

IdleArenas& idleArenas() {
    static Anchor::NeverDestroyed<IdleArenas> instance;
    return instance.get();
}

class TbbWorkers final : public Anchor::Workers {
public:
    explicit TbbWorkers(unsigned count) : count_(count), arena_(idleArenas().take(count)) {}
    TbbWorkers(const TbbWorkers&) = delete;
    TbbWorkers& operator=(const TbbWorkers&) = delete;
    ~TbbWorkers() override { idleArenas().giveBack(count_, std::move(arena_)); }

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
        arena_->execute([&] { tbb::parallel_for(0U, count_, work, tbb::simple_partitioner()); });
    }

private:
    unsigned count_;
    /// By itself the library starts no more threads than there are processors.
    std::optional<tbb::global_control> threads_;
    std::once_flag limited_;
    std::unique_ptr<tbb::task_arena> arena_;
};

} // namespace

Anchor::StrongPtr<Anchor::Workers> makeWorkers(unsigned count) {
    return count > 1 ? Anchor::StrongPtr<Anchor::Workers>(Anchor::makeStrong<TbbWorkers>(count)) : nullptr;
}

} // namespace Tidewatch
