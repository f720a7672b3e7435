// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "anchor/Workers.hpp"
#include "anchor/processLimits.hpp"

#include <cstdint>
#include <functional>
#include <string>

namespace ConvLib {

/// How input files are read.
struct ReadOptions {
    /// The time of the slice for files that state none.
    double SliceTime = 0.0;

    /// The number of points per fragment for files without fragments; 0 counts as 1.
    std::uint64_t FragmentPoints = 1'000'000;

    /// The largest array, in bytes, that a reader may make; beyond it a reader throws Anchor::LimitError.
    /// By default three quarters of what the process may use.
    std::uint64_t MaximumArrayBytes = Anchor::processMemory() / 4 * 3;

    /// Called while arrays are read, at least a few times per second, with the file and the completed share of the
    /// current array (0 to 1). May throw to stop: the exception passes through the code that requested the array. May
    /// be empty. It is kept as long as arrays can be requested.
    std::function<void(const std::string& file, double share)> Tick;

    /// Whether the host is going to request the field of this name. A reader that decodes several fields in one pass
    /// keeps only those for which this returns true, and the one requested. A requested field is always created,
    /// whatever this returns. Called on the thread that creates an array, which may be any. Empty if the host may
    /// request all fields.
    std::function<bool(const std::string& field)> IsWanted;

    /// With whom arrays are read; null: on the thread that requests them only. Kept as long as arrays can be requested.
    /// Tick is called on the thread that requests an array in any case.
    Anchor::StrongPtr<Anchor::Workers> Workers;
};

} // namespace ConvLib
