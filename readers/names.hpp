// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/names.hpp"

#include <string>

namespace Tidewatch {

using Anchor::isFitForName;
using Anchor::nameFault;

/// The name of the grid that a file becomes: the file's, without folders and extension. Throws
/// Anchor::FormatError where that is not a valid name.
[[nodiscard]] std::string gridNameOf(const std::string& path);

} // namespace Tidewatch
