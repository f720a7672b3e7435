// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Formats::Las {

/// Coders renew their interval, byte by byte, when it becomes shorter than this. (A 32-bit interval: A. Said, 2004.)
constexpr std::uint32_t shortestInterval = 1U << 24;

/// Longer unmodelled numbers are coded in two parts: the lower half word, then the rest.
constexpr unsigned mostBitsAtOnce = 19;
constexpr unsigned halfWordBits = 16;

/// Adaptive frequencies of n symbols, as the entropy coding of LAZ files uses them: counts that start at 1
/// and are halved from 2^15 on, turned into cumulative bounds in units of 2^-15 at growing intervals.
/// (Method: A. Said, "Introduction to Arithmetic Coding - Theory and Practice", 2004; the constants are those
/// of the LAZ format.)
class SymbolModel {
public:
    /// Bounds are in units of 2^-15 of the interval.
    static constexpr unsigned precision = 15;

    /// `symbolCount` must be at least 2.
    explicit SymbolModel(std::uint32_t symbolCount);

    [[nodiscard]] std::uint32_t symbolCount() const noexcept {
        return static_cast<std::uint32_t>(counts_.size());
    }

    /// Where a symbol's part of the interval begins.
    [[nodiscard]] std::uint32_t lowerBound(std::uint32_t symbol) const noexcept { return bounds_[symbol]; }

    /// Counts an occurrence of a symbol.
    void count(std::uint32_t symbol);

private:
    void update();

    std::vector<std::uint32_t> counts_;
    std::vector<std::uint32_t> bounds_;
    std::uint32_t total_ = 0;
    std::uint32_t cycle_ = 0;
    std::uint32_t untilUpdate_ = 0;
};

/// The same for a single bit, with a resolution of 2^-13.
class BitModel {
public:
    static constexpr unsigned precision = 13;

    /// Where the interval of the bit 1 begins.
    [[nodiscard]] std::uint32_t oneBound() const noexcept { return zeroShare_; }

    void count(bool bit);

private:
    std::uint32_t zeros_ = 1;
    std::uint32_t total_ = 2;
    std::uint32_t zeroShare_ = 1U << (precision - 1);
    std::uint32_t cycle_ = 4;
    std::uint32_t untilUpdate_ = 4;
};

} // namespace Formats::Las
