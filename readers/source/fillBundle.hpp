// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/source/Input.hpp"
#include "readers/source/Structure.hpp"
#include "sheaf/Bundle.hpp"

#include <memory>

namespace Tidewatch {

/// Adds what an input holds to a bundle, with creators that read its arrays on demand. Everything is checked as
/// foreign input is: names, times, counts, extents.
///
/// Throws Anchor::FormatError for a structure that a bundle cannot have or a name that is unfit for a path,
/// Anchor::LimitError for a uniform grid of a bundle file beyond ReadOptions::MaximumArrayBytes,
/// Anchor::ModelError for a grid that the bundle has already. The bundle is then as it was before. Gives the name
/// of the grid of a Structure::isSingleGrid, else an empty text.
std::string fillBundle(Sheaf::Bundle& bundle, const Structure& structure,
                       const std::shared_ptr<Input>& input);

} // namespace Tidewatch
