// SPDX-License-Identifier: Apache-2.0
#include "anchor/ReferenceBase.hpp"

namespace Anchor {

InterfaceBase::~InterfaceBase() {
    record_->unwatch();
}

Creature::~Creature() = default;

} // namespace Anchor
