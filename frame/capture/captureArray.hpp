// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "geom/PhysicalSpace.hpp"
#include "sheaf/CreativeArrayBase.hpp"

#include <vector>

namespace ExportLib {

/// Appends all elements of a fragment's array to `out`, in storage order; `out` is never cleared.
///
/// Nothing is appended for a null creator, for data that is not there, and for an array whose element type is
/// not exactly T: intensities stored in 32 bits, say, are passed by. Throws what the creator throws when data
/// that is there cannot be made; `out` is then as it was.
template <class T>
void captureArray(std::vector<T>& out,
                  const Anchor::StrongPtr<Sheaf::CreativeArrayBase, Anchor::Creature>& creator);

extern template TIDEWATCH_API void
captureArray(std::vector<Geom::PhysicalSpace::point>& out,
             const Anchor::StrongPtr<Sheaf::CreativeArrayBase, Anchor::Creature>& creator);
extern template TIDEWATCH_API void
captureArray(std::vector<unsigned short>& out,
             const Anchor::StrongPtr<Sheaf::CreativeArrayBase, Anchor::Creature>& creator);

} // namespace ExportLib
