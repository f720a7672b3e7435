// SPDX-License-Identifier: Apache-2.0
#include "library/points/FragmentMask.hpp"

#include <numeric>
#include <utility>

namespace Tidewatch {

ElementSet::ElementSet(std::size_t size)
    : words_(size / wordBits + (size % wordBits != 0 ? 1 : 0), ~std::uint64_t{0}),
      size_(size) {
    if (const std::size_t rest = size % wordBits; rest != 0)
        words_.back() = (std::uint64_t{1} << rest) - 1;
}

std::size_t ElementSet::count() const noexcept {
    return std::accumulate(words_.begin(), words_.end(), std::size_t{0},
                           [](std::size_t sum, std::uint64_t word) {
                               return sum + static_cast<std::size_t>(std::popcount(word));
                           });
}

FragmentMask::FragmentMask(std::uint64_t elements, std::vector<Test> tests)
    : elements_(elements),
      tests_(std::move(tests)) {}

FragmentMask::~FragmentMask() = default;

const ElementSet& FragmentMask::chosen() const {
    const std::lock_guard one(determining_);
    {
        const std::lock_guard lock(mutex_);
        if (chosen_)
            return *chosen_;
    }
    ElementSet chosen(static_cast<std::size_t>(elements_));
    for (const Test& test : tests_)
        test(chosen);
    const std::lock_guard lock(mutex_);
    count_ = chosen.count();
    return chosen_.emplace(std::move(chosen));
}

std::optional<std::uint64_t> FragmentMask::knownCount() const {
    const std::lock_guard lock(mutex_);
    return chosen_ ? std::optional(count_) : std::nullopt;
}

} // namespace Tidewatch
