// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace Tidewatch::Raster {

/// The names of the files beside a raster that GDAL may read, excluding the raster itself: headers of raw
/// formats, world files, coordinate reference systems, masks and GDAL's metadata (.aux.xml). Overviews and
/// other files that GDAL would open by itself are not included. Throws Anchor::FileError when the folder
/// cannot be listed.
[[nodiscard]] std::vector<std::string> companionsOf(const std::string& path);

} // namespace Tidewatch::Raster
