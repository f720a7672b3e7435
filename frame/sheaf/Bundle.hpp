// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "anchor/WeakPtr.hpp"
#include "sheaf/Slice.hpp"

#include <map>

namespace Sheaf {

/// A data set: its time slices.
///
/// Only one thread may build the hierarchy below it; afterwards several threads may read it and run their own
/// exporters on it, because reference counts are atomic, and creators and grids guard their own state.
class TIDEWATCH_API Bundle : public Anchor::ReferenceBase<Bundle> {
public:
    using SliceMap = std::map<double, Anchor::WeakPtr<Slice>>;

    Bundle() = default;
    ~Bundle() override;

    /// The slices by time, ascending. Entries may have expired; skip those.
    [[nodiscard]] const SliceMap& slices() const noexcept { return slices_; }

    /// The slice of a time, created if missing; the bundle keeps it alive. Throws Anchor::ModelError for a
    /// time that is not a finite number.
    Anchor::StrongPtr<Slice> makeSlice(double time);

    /// Releases a slice: its entry in the map expires unless somebody else holds the slice. An unknown time
    /// is not an error.
    void removeSlice(double time);

private:
    SliceMap slices_;
    std::map<double, Anchor::StrongPtr<Slice>> kept_;
};

} // namespace Sheaf
