// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Cacheable.hpp"
#include "anchor/StrongPtr.hpp"

namespace Anchor {

/// Makes data on demand. `Base` is the class of data that this family of creators makes (all of them
/// Cacheable).
template <class Base>
class TIDEWATCH_API CreatorBase : public Creature {
public:
    /// The data as a Cacheable; take a strong reference for as long as it is read.
    ///
    /// `create(false)` gives the data that is there already, and makes and keeps it where there is none;
    /// `create(true)` makes it anew. Null where there is no data. Throws Anchor::Error when the
    /// data exists but cannot be made (a file that is damaged or gone).
    [[nodiscard]] virtual StrongPtr<Cacheable> create(bool anew) const = 0;

protected:
    CreatorBase() = default;
    ~CreatorBase() override = default;
};

} // namespace Anchor
