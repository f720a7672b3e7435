// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/source/Input.hpp"
#include "readers/source/Structure.hpp"
#include "sheaf/Bundle.hpp"

#include <memory>

namespace Tidewatch {

/// Adds the content of an input to a bundle, with creators that read its arrays on demand. Everything is
/// checked as untrusted input: names, times, counts, extents.
///
/// Throws Anchor::FormatError for an invalid structure or a name that is not valid in a path,
/// Anchor::LimitError for a uniform grid of a bundle file beyond ReadOptions::MaximumArrayBytes,
/// Anchor::ModelError for a grid that the bundle already has. The bundle is unchanged then. Returns the
/// grid's name if Structure::isSingleGrid, else an empty string.
std::string fillBundle(Sheaf::Bundle& bundle, const Structure& structure,
                       const std::shared_ptr<Input>& input);

} // namespace Tidewatch
