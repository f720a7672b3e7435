// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Cacheable.hpp"
#include "anchor/StrongPtr.hpp"

namespace Anchor {

/// Creates data on demand. `Base` is the class of the data that this family of creators creates (always
/// Cacheable).
template <class Base>
class TIDEWATCH_API CreatorBase : public Creature {
public:
    /// The data as a Cacheable; take a strong reference for as long as it is read.
    ///
    /// `create(false)` returns existing data, and creates and keeps it if there is none; `create(true)`
    /// always creates it again. Null if there is no data. Throws Anchor::Error if the data exists but cannot
    /// be created (a damaged or missing file).
    [[nodiscard]] virtual StrongPtr<Cacheable> create(bool anew) const = 0;

protected:
    CreatorBase() = default;
    ~CreatorBase() override = default;
};

} // namespace Anchor
