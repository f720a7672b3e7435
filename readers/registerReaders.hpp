// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

namespace Tidewatch {

/// Registers the readers of this library with the process: LAS and LAZ files, then bundle files, then
/// rasters where the library was built with GDAL. Calling it again changes nothing.
TIDEWATCH_API void registerReaders();

} // namespace Tidewatch
