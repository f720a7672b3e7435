// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Workers.hpp"
#include "convlib/BasicConverterDefs.hpp"

#include <algorithm>
#include <cstddef>
#include <functional>

namespace ExportLib {

/// Called often during long work: a host that wants to stop throws. May be empty.
using StopQuestion = std::function<void()>;

/// Calls work(begin, end) for successive blocks of `count` items, and the stop question before each.
template <class Work>
void inBlocks(std::size_t count, const StopQuestion& mayGoOn, Work&& work) {
    constexpr std::size_t size = ConvLib::BasicConverterDefs::stopInterval;
    for (std::size_t begin = 0; begin < count; begin += std::min(size, count - begin)) {
        if (mayGoOn)
            mayGoOn();
        work(begin, begin + std::min(size, count - begin));
    }
}

/// The number of blocks of inBlocks().
[[nodiscard]] constexpr std::size_t blockCount(std::size_t count) noexcept {
    constexpr std::size_t size = ConvLib::BasicConverterDefs::stopInterval;
    return count / size + static_cast<std::size_t>(count % size != 0);
}

/// Calls work(block, begin, end) for the same blocks, side by side if there are workers; the stop question comes between
/// them, on the calling thread.
template <class Work>
void inBlocksSideBySide(std::size_t count, Anchor::Workers* workers, const StopQuestion& mayGoOn,
                        Work&& work) {
    constexpr std::size_t size = ConvLib::BasicConverterDefs::stopInterval;
    Anchor::runPieces(
        workers, blockCount(count),
        [&](std::size_t block) { work(block, block * size, std::min(block * size + size, count)); }, mayGoOn);
}

/// "Less than" for standard algorithms that calls the stop question once per `interval` comparisons. `calls` counts for
/// all copies, because algorithms copy comparison objects; it and the question, which must not be empty, must outlive
/// them.
class AskingLess {
public:
    AskingLess(const StopQuestion& mayGoOn, std::size_t& calls) noexcept
        : mayGoOn_(&mayGoOn),
          calls_(&calls) {}

    template <class T>
    bool operator()(const T& a, const T& b) const {
        if (++*calls_ % interval == 0) [[unlikely]]
            (*mayGoOn_)();
        return a < b;
    }

private:
    // A comparison is cheaper than processing any other item.
    static constexpr std::size_t interval = 4 * ConvLib::BasicConverterDefs::stopInterval;

    const StopQuestion* mayGoOn_;
    std::size_t* calls_;
};

} // namespace ExportLib
