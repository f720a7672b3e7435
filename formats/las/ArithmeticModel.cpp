// SPDX-License-Identifier: Apache-2.0
#include "formats/las/ArithmeticModel.hpp"

#include <algorithm>

namespace Formats::Las {

namespace {

constexpr std::uint32_t one = 0x80000000U; // 1 in the fixed-point numbers of the updates
constexpr unsigned oneShift = 31;

constexpr std::uint32_t grow(std::uint32_t cycle, std::uint32_t limit) noexcept {
    return std::min(cycle * 5 / 4, limit);
}

} // namespace

SymbolModel::SymbolModel(std::uint32_t symbolCount) : counts_(symbolCount, 1), bounds_(symbolCount, 0) {
    cycle_ = symbolCount; // what the first update adds to the total of the counts
    update();
    cycle_ = (symbolCount + 6) / 2;
    untilUpdate_ = cycle_;
}

void SymbolModel::count(std::uint32_t symbol) {
    ++counts_[symbol];
    if (--untilUpdate_ == 0)
        update();
}

void SymbolModel::update() {
    total_ += cycle_;
    if (total_ > (1U << precision)) {
        total_ = 0;
        for (std::uint32_t& count : counts_) {
            count = (count + 1) / 2;
            total_ += count;
        }
    }
    const std::uint32_t scale = one / total_;
    std::uint32_t below = 0;
    for (std::size_t symbol = 0; symbol < counts_.size(); ++symbol) {
        bounds_[symbol] = (scale * below) >> (oneShift - precision);
        below += counts_[symbol];
    }
    cycle_ = grow(cycle_, (symbolCount() + 6) * 8);
    untilUpdate_ = cycle_;
}

void BitModel::count(bool bit) {
    if (!bit)
        ++zeros_;
    if (--untilUpdate_ != 0)
        return;
    total_ += cycle_;
    if (total_ > (1U << precision)) {
        total_ = (total_ + 1) / 2;
        zeros_ = (zeros_ + 1) / 2;
        if (zeros_ == total_)
            ++total_;
    }
    zeroShare_ = (zeros_ * (one / total_)) >> (oneShift - precision);
    cycle_ = grow(cycle_, 64);
    untilUpdate_ = cycle_;
}

} // namespace Formats::Las
