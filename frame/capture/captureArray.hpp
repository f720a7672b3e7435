// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "sheaf/CreativeArrayBase.hpp"
#include "sheaf/ElementTypes.hpp"

#include <vector>

namespace ExportLib {

/// Appends all elements of a fragment's array to `out`, in storage order; `out` is never cleared.
///
/// Nothing is appended for a null creator, for missing data, and for an array whose element type is not
/// exactly T: a caller that wants 16-bit intensities gets none that are stored in 32 bits. Throws what the
/// creator throws if existing data cannot be created; `out` is then unchanged.
template <Sheaf::ElementType T>
void captureArray(std::vector<T>& out,
                  const Anchor::StrongPtr<Sheaf::CreativeArrayBase, Anchor::Creature>& creator);

#define TIDEWATCH_CAPTURE(TYPE, NAME, COMPONENT, COUNT)                                                      \
    extern template TIDEWATCH_API void captureArray(                                                         \
        std::vector<TYPE>& out,                                                                              \
        const Anchor::StrongPtr<Sheaf::CreativeArrayBase, Anchor::Creature>& creator);
TIDEWATCH_ELEMENT_TYPES(TIDEWATCH_CAPTURE)
#undef TIDEWATCH_CAPTURE

} // namespace ExportLib
