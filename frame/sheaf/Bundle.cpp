// SPDX-License-Identifier: Apache-2.0
#include "sheaf/Bundle.hpp"

#include "anchor/Error.hpp"

#include <cmath>

namespace Sheaf {

Bundle::~Bundle() = default;

Anchor::StrongPtr<Slice> Bundle::makeSlice(double time) {
    if (!std::isfinite(time))
        throw Anchor::ModelError("a time slice whose time is not a finite number");
    // 0 and -0 are the same time, stored as 0.
    if (time == 0.0)
        time = 0.0;
    Anchor::WeakPtr<Slice>& entry = slices_[time];
    auto slice = entry.lock();
    if (!slice) {
        slice = Anchor::makeStrong<Slice>(time);
        entry = slice;
        kept_[time] = slice;
    }
    return slice;
}

void Bundle::removeSlice(double time) {
    kept_.erase(time);
}

} // namespace Sheaf
