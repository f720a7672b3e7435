// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "anchor/WeakPtr.hpp"
#include "sheaf/Slice.hpp"

#include <map>

namespace Sheaf {

/// A data set: its time slices.
///
/// The nest below it belongs to one thread while it is being built; afterwards several threads may read it,
/// and run exporters of their own on it, since the counts of references are atomic, and creators and grids
/// guard their own state.
class TIDEWATCH_API Bundle : public Anchor::ReferenceBase<Bundle> {
public:
    using SliceMap = std::map<double, Anchor::WeakPtr<Slice>>;

    Bundle() = default;
    ~Bundle() override;

    /// The slices by time, ascending. Entries may have expired; pass them over.
    [[nodiscard]] const SliceMap& slices() const noexcept { return slices_; }

    /// The slice of a time, made when missing; the bundle keeps it alive.
    /// Throws Anchor::ModelError for a time that is not a finite number.
    Anchor::StrongPtr<Slice> makeSlice(double time);

    /// Lets go of a slice: its entry in the map expires unless somebody else holds it. An unknown time is no
    /// error.
    void removeSlice(double time);

private:
    SliceMap slices_;
    std::map<double, Anchor::StrongPtr<Slice>> kept_;
};

} // namespace Sheaf
