// SPDX-License-Identifier: Apache-2.0
#include "library/export/SideBySide.hpp"

#include "anchor/Console.hpp"
#include "anchor/Error.hpp"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <numeric>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

/// Ends a unit because another one has ended all.
struct Stopped {};

/// The progress of one unit: keeps its share for the calling thread, and ends it when that wants to stop.
class UnitProgress final : public Progress {
public:
    explicit UnitProgress(const std::atomic<bool>& isStopped) : isStopped_(isStopped) {}

    void begin(const std::string&, double total, const std::string&) override {
        total_ = total;
        tellShare(0);
    }
    void piece(double done, double size) override {
        done_ = done;
        size_ = size;
        tellShare(0);
    }
    void tick(const std::string&, double share) override {
        check();
        tellShare(share);
    }
    void check() override {
        if (isStopped_)
            throw Stopped();
    }

    /// Called on any thread.
    [[nodiscard]] double share() const noexcept { return share_; }

private:
    void tellShare(double ofPiece) noexcept {
        share_ = total_ > 0 ? std::clamp((done_ + ofPiece * size_) / total_, 0.0, 1.0) : 0;
    }

    const std::atomic<bool>& isStopped_;
    double total_ = 0;
    double done_ = 0;
    double size_ = 0;
    std::atomic<double> share_ = 0;
};

struct Unit {
    Anchor::StrongPtr<UnitProgress> progress;
    std::vector<std::string> messages;
    std::exception_ptr failure;
    bool isReady = false;
};

class Run {
public:
    Run(const SideBySide::Units& units, Progress& progress)
        : units_(units),
          progress_(progress),
          state_(units.sizes.size()),
          order_(units.sizes.size()) {
        for (Unit& unit : state_)
            unit.progress = Anchor::makeStrong<UnitProgress>(isStopped_);
        std::iota(order_.begin(), order_.end(), std::size_t{0});
        std::stable_sort(order_.begin(), order_.end(),
                         [&](std::size_t a, std::size_t b) { return units_.sizes[a] > units_.sizes[b]; });
        total_ = std::accumulate(units_.sizes.begin(), units_.sizes.end(), 0.0);
    }

    void run(unsigned threads) {
        progress_.begin("writing", total_, units_.unit);
        std::vector<std::jthread> running;
        // Threads that have begun are joined when they are destroyed: they end soon once they are told.
        struct Stop {
            ~Stop() { isStopped = true; }
            std::atomic<bool>& isStopped;
        };
        {
            const Stop stop{isStopped_};
            begin(threads, running);
            takeUnits();
        }
        running.clear();
        tellMessages(true);
        for (const Unit& unit : state_) {
            if (unit.failure)
                std::rethrow_exception(unit.failure);
        }
    }

private:
    void begin(unsigned threads, std::vector<std::jthread>& running) {
        while (running.size() < threads) {
            try {
                running.emplace_back([this] { writeUnits(); });
            } catch (const std::system_error& error) {
                // Where the system allows no more threads, there are fewer.
                if (running.empty())
                    throw Anchor::LimitError(
                        fmt::format("cannot start a thread: {}", error.code().message()));
                return;
            }
        }
    }

    /// What each thread does.
    void writeUnits() {
        for (std::size_t place = next_++; place < order_.size() && !isStopped_; place = next_++) {
            const std::size_t number = order_[place];
            Unit& unit = state_[number];
            std::exception_ptr failure;
            try {
                const Anchor::Console::ThreadSink sink(
                    [&](std::string_view message) { unit.messages.emplace_back(message); });
                const Progress::OnThisThread own(*unit.progress);
                units_.write(number, unit.progress);
            } catch (const Stopped&) {
                break;
            } catch (...) {
                failure = std::current_exception();
                isStopped_ = true;
            }
            const std::lock_guard lock(mutex_);
            unit.failure = std::move(failure);
            unit.isReady = true;
            ready_.push_back(number);
            changed_.notify_one();
        }
    }

    void takeUnits() {
        using namespace std::chrono_literals;
        std::size_t taken = 0;
        while (taken < order_.size() && !isStopped_) {
            std::vector<std::size_t> ready;
            {
                std::unique_lock lock(mutex_);
                changed_.wait_for(lock, 50ms, [&] { return !ready_.empty(); });
                ready.swap(ready_);
            }
            for (const std::size_t number : ready) {
                ++taken;
                if (!state_[number].failure && !units_.take(number))
                    return;
            }
            tellMessages(false);
            progress_.check();
            tellProgress(taken);
        }
    }

    /// Some times a second, since it looks at every unit.
    void tellProgress(std::size_t taken) {
        using namespace std::chrono_literals;
        const auto now = std::chrono::steady_clock::now();
        if (taken < state_.size() && now - toldAt_ < 50ms)
            return;
        toldAt_ = now;
        double done = 0;
        for (std::size_t number = 0; number < state_.size(); ++number)
            done += units_.sizes[number] * state_[number].progress->share();
        progress_.say(fmt::format("writing: {} of {} outputs are done", taken, state_.size()));
        progress_.piece(done, 0);
    }

    /// Passes on the messages of the units up to the first that is not ready; at the end those of all.
    void tellMessages(bool isEnd) {
        for (; told_ < state_.size(); ++told_) {
            {
                const std::lock_guard lock(mutex_);
                if (!isEnd && !state_[told_].isReady)
                    return;
            }
            for (const std::string& message : state_[told_].messages)
                Anchor::Console() << message;
            state_[told_].messages.clear();
        }
    }

    const SideBySide::Units& units_;
    Progress& progress_;
    double total_ = 0;
    std::vector<Unit> state_;
    /// The numbers of the units, the largest first.
    std::vector<std::size_t> order_;
    std::atomic<std::size_t> next_ = 0;
    std::atomic<bool> isStopped_ = false;
    std::chrono::steady_clock::time_point toldAt_;
    std::size_t told_ = 0; // how many units' messages
    std::mutex mutex_;     // of what follows, and of what says that a unit is ready
    std::condition_variable changed_;
    std::vector<std::size_t> ready_;
};

} // namespace

void SideBySide::run(const Units& units, unsigned threads, Progress& progress) {
    Run(units, progress).run(threads);
}

} // namespace Tidewatch
