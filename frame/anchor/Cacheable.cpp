// SPDX-License-Identifier: Apache-2.0
#include "anchor/Cacheable.hpp"

namespace Anchor {

Cacheable::~Cacheable() = default;

} // namespace Anchor
