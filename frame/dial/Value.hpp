// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/ReferenceBase.hpp"

#include <typeinfo>

namespace Dial {

/// A parameter value of some type.
class TIDEWATCH_API Value : public Anchor::ReferenceBase<Value> {
public:
    ~Value() override;

    /// The type of the value that is held.
    [[nodiscard]] virtual const std::type_info& type() const noexcept = 0;
};

} // namespace Dial
