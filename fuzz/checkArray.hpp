// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Error.hpp"
#include "sheaf/MemBase.hpp"
#include "sheaf/SkeletonMap.hpp"

#include <cstdlib>

/// Makes the array of a fragment and ends the process unless it is what was announced, or is refused: one
/// damaged array says nothing about the next.
inline void checkArray(const Sheaf::FieldFragment& stop) {
    try {
        const auto array = Anchor::dynamicCast<Sheaf::MemBase>(stop.data->create(false));
        if (!array || array->extents() != stop.data->extents() ||
            array->elementType() != stop.field.getElementType())
            std::abort();
    } catch (const Anchor::Error&) {
    }
}
