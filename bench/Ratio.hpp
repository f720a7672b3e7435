// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <fmt/core.h>

namespace Bench {

/// The middle of some values, the upper one of two.
inline double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// One of several ways to do the same work; `prepare` is not timed.
struct Candidate {
    std::string name;
    std::function<void()> prepare;
    std::function<void()> run;
};

/// Times candidates in turn, round after round, so that what disturbs the machine for a while disturbs all of
/// them. Every candidate runs once beforehand, untimed.
class Race {
public:
    Race(const std::vector<Candidate>& candidates, int rounds) : seconds_(candidates.size()) {
        for (int round = -1; round < rounds; ++round) {
            for (std::size_t i = 0; i < candidates.size(); ++i) {
                candidates[i].prepare();
                const auto begin = std::chrono::steady_clock::now();
                candidates[i].run();
                const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
                if (round >= 0)
                    seconds_[i].push_back(taken.count());
            }
        }
        for (const Candidate& candidate : candidates)
            names_.push_back(candidate.name);
    }

    /// The median time of a candidate in seconds.
    [[nodiscard]] double seconds(std::size_t candidate) const { return median(seconds_[candidate]); }

    /// The median over the rounds of the time of one candidate divided by that of another in the same round.
    [[nodiscard]] double ratio(std::size_t candidate, std::size_t other) const {
        std::vector<double> ratios;
        for (std::size_t round = 0; round < seconds_[candidate].size(); ++round)
            ratios.push_back(seconds_[candidate][round] / seconds_[other][round]);
        return median(std::move(ratios));
    }

    void printTimes() const {
        for (std::size_t i = 0; i < names_.size(); ++i) {
            const auto [least, greatest] = std::minmax_element(seconds_[i].begin(), seconds_[i].end());
            fmt::print("  {:<44} {:8.1f} ms  ({:.1f} to {:.1f})\n", names_[i], seconds(i) * 1e3, *least * 1e3,
                       *greatest * 1e3);
        }
    }

private:
    std::vector<std::string> names_;
    std::vector<std::vector<double>> seconds_;
};

/// Prints a ratio beside its goal.
inline void printAtMost(const std::string& what, double ratio, double goal) {
    fmt::print("  {:<60} {:6.2f}  goal at most {:.2f}: {}\n", what, ratio, goal,
               ratio <= goal ? "met" : "MISSED");
}
inline void printAtLeast(const std::string& what, double ratio, double goal) {
    fmt::print("  {:<60} {:6.2f}  goal at least {:.2f}: {}\n", what, ratio, goal,
               ratio >= goal ? "met" : "MISSED");
}

} // namespace Bench
