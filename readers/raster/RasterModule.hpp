// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/source/Source.hpp"

namespace Tidewatch {

/// The module of rasters.
[[nodiscard]] const SourceModule& rasterModule();

} // namespace Tidewatch
