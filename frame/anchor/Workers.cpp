// SPDX-License-Identifier: Apache-2.0
#include "anchor/Workers.hpp"

#include <atomic>
#include <exception>
#include <limits>
#include <mutex>
#include <thread>

namespace Anchor {

Workers::~Workers() = default;

unsigned workerCount(const Workers* workers) noexcept {
    return workers != nullptr ? workers->count() : 1;
}

namespace {

/// What the pieces of one call of runPieces() share.
class Failure {
public:
    static constexpr std::size_t none = std::numeric_limits<std::size_t>::max();

    /// Pieces below the failed one still run: one of them may fail, too, and is then the one to be reported.
    [[nodiscard]] bool concerns(std::size_t piece) const noexcept { return piece >= first_; }

    void note(std::size_t piece) noexcept {
        const std::lock_guard lock(mutex_);
        if (stopped_ || piece >= first_)
            return;
        first_ = piece;
        error_ = std::current_exception();
    }

    /// Takes precedence over all pieces.
    void stop() noexcept {
        const std::lock_guard lock(mutex_);
        stopped_ = true;
        first_ = 0;
        error_ = std::current_exception();
    }

    void rethrow() const {
        if (error_)
            std::rethrow_exception(error_);
    }

private:
    std::mutex mutex_;
    std::atomic<std::size_t> first_ = none;
    bool stopped_ = false;
    std::exception_ptr error_;
};

} // namespace

void runPieces(Workers* workers, std::size_t pieces, const std::function<void(std::size_t)>& piece,
               const std::function<void()>& between) {
    if (workerCount(workers) == 1 || pieces < 2) {
        for (std::size_t i = 0; i < pieces; ++i) {
            piece(i);
            if (between)
                between();
        }
        return;
    }
    Failure failure;
    const std::thread::id caller = std::this_thread::get_id();
    workers->run(pieces, [&](std::size_t i) {
        if (failure.concerns(i))
            return;
        try {
            piece(i);
        } catch (...) {
            failure.note(i);
        }
        if (!between || std::this_thread::get_id() != caller)
            return;
        try {
            between();
        } catch (...) {
            failure.stop();
        }
    });
    failure.rethrow();
}

} // namespace Anchor
