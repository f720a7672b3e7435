// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/processMemory.hpp"

#include <cstdint>
#include <functional>
#include <string>

namespace ConvLib {

/// How input files are read.
struct ReadOptions {
    /// The time of the slice for files that do not state one.
    double SliceTime = 0.0;

    /// How many points a fragment gets where a file has no fragments of its own; 0 counts as 1.
    std::uint64_t FragmentPoints = 1'000'000;

    /// The largest array, in bytes, that a reader may make; beyond it a reader throws Anchor::LimitError.
    /// By default three quarters of what the process may use.
    std::uint64_t MaximumArrayBytes = Anchor::processMemory() / 4 * 3;

    /// Called while arrays are read, at least some times a second, with the file and the share that is done
    /// of the array in hand (0 to 1). May throw to stop: the exception passes through the code that asked for the
    /// array. May be empty. It is kept for as long as arrays can be asked for.
    std::function<void(const std::string& file, double share)> Tick;

    /// Whether the host is going to ask for a field by this name. A reader that gets several fields by the same
    /// effort keeps the others it is asked about; whatever the answer, a field that is asked for is made. Called
    /// by the thread that makes an array, so from any. Empty for a host that may ask for all of them.
    std::function<bool(const std::string& field)> IsWanted;
};

} // namespace ConvLib
