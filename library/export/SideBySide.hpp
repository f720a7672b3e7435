// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "library/Progress.hpp"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace Tidewatch {

/// Outputs of one export that do not depend on each other, written on several threads. What they read may be shared: the
/// readers of this project are called on any thread.
class SideBySide {
public:
    /// What is to be done.
    struct Units {
        /// The size of each, in the unit of `unit`, which is in the plural.
        std::vector<double> sizes;
        std::string unit;
        /// Writes one; called on one of the threads. Its progress is told to `progress`, which also ends it.
        std::function<void(std::size_t number, const Anchor::StrongPtr<Progress>& progress)> write;
        /// Takes one that has been written, on the calling thread, in the order in which they are ready; false to begin no
        /// more and to stop the others.
        std::function<bool(std::size_t number)> take;
    };

    /// Writes all, the largest first, on so many threads. `progress` is called on the calling thread only. Console messages
    /// come on the calling thread as well, those of one unit after those of the one before.
    ///
    /// An exception ends all: of several, that of the unit with the lowest number passes through, unless `take` or
    /// `progress` threw.
    static void run(const Units& units, unsigned threads, Progress& progress);
};

} // namespace Tidewatch
