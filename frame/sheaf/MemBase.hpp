// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Cacheable.hpp"
#include "sheaf/Extents.hpp"

#include <typeinfo>

namespace Sheaf {

/// Base class of all arrays: the properties that do not depend on the element type.
class TIDEWATCH_API MemBase : public Anchor::Cacheable {
public:
    ~MemBase() override;

    [[nodiscard]] virtual const std::type_info& elementType() const noexcept = 0;
    [[nodiscard]] const Extents& extents() const noexcept { return extents_; }

protected:
    explicit MemBase(const Extents& extents) : extents_(extents) {}

private:
    Extents extents_;
};

} // namespace Sheaf
