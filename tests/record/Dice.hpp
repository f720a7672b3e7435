// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>

namespace Record {

/// Numbers that look like chance and repeat on every machine (SplitMix64); those of the standard library's
/// distributions do not.
class Dice {
public:
    explicit Dice(std::uint64_t seed) : state_(seed) {}

    std::uint64_t next() noexcept {
        std::uint64_t z = state_ += 0x9e3779b97f4a7c15;
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9;
        z = (z ^ (z >> 27)) * 0x94d049bb133111eb;
        return z ^ (z >> 31);
    }

    /// From 0 to n - 1.
    std::uint64_t below(std::uint64_t n) noexcept { return next() % n; }
    bool percent(unsigned chance) noexcept { return below(100) < chance; }

    template <class T>
    T pick(std::initializer_list<T> choices) noexcept {
        return *(choices.begin() + below(choices.size()));
    }

private:
    std::uint64_t state_;
};

} // namespace Record
