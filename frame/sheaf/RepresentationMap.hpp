// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "sheaf/BaseSpace.hpp"
#include "sheaf/Representation.hpp"

#include <functional>
#include <vector>

namespace Sheaf {

/// The representations of one skeleton, one per base space, in the order of their base spaces.
class TIDEWATCH_API RepresentationMap {
public:
    /// A visitor over all representations.
    class TIDEWATCH_API ConstIterator {
    public:
        virtual ~ConstIterator();

        /// Called once per representation with its base space; false ends the traversal.
        virtual bool apply(const BaseSpace& space, const Representation& representation) = 0;
    };

    /// The representation in a base space, or null (also for a null base space).
    [[nodiscard]] Anchor::StrongPtr<Representation>
    operator()(const Anchor::StrongPtr<BaseSpace>& space) const;

    /// The representation in a base space, created if missing. Throws Anchor::ModelError for a null base
    /// space.
    Anchor::StrongPtr<Representation> make(const Anchor::StrongPtr<BaseSpace>& space);

    void iterate(ConstIterator& visitor) const;

    /// The same for a callable; returns whether the traversal finished.
    bool forEach(const std::function<bool(const BaseSpace&, const Representation&)>& visit) const;

private:
    struct Entry {
        Anchor::StrongPtr<BaseSpace> space;
        Anchor::StrongPtr<Representation> representation;
    };

    std::vector<Entry> entries_; // in the order of the base spaces
};

} // namespace Sheaf
