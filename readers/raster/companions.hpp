// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace Tidewatch::Raster {

/// The names of the files beside a raster that GDAL may look into, without the raster's own: headers of
/// raw formats, world files, coordinate reference systems, masks and GDAL's remarks. Overviews and whatever
/// else GDAL would open by itself are not among them. Throws Anchor::FileError when the folder cannot be
/// listed.
[[nodiscard]] std::vector<std::string> companionsOf(const std::string& path);

} // namespace Tidewatch::Raster
