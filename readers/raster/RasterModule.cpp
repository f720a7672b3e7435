// SPDX-License-Identifier: Apache-2.0
//
// The exports of tidewatch-rasters: the reader of rasters, all that needs GDAL.
#include "readers/raster/RasterModule.hpp"

#include "anchor/Visibility.hpp"
#include "readers/source/modules.hpp"

extern "C" TIDEWATCH_API Tidewatch::GetModule tidewatch_module;

const Tidewatch::SourceModule* tidewatch_module() {
    return &Tidewatch::rasterModule();
}
