// SPDX-License-Identifier: Apache-2.0
#include "anchor/Visibility.hpp"
#include "readers/raster/RasterGate.hpp"
#include "readers/raster/RasterReader.hpp"

extern "C" TIDEWATCH_API Tidewatch::MakeRasterReader tidewatch_make_raster_reader;

void tidewatch_make_raster_reader(Anchor::StrongPtr<ConvLib::Reader>& reader) {
    reader = Anchor::makeStrong<Tidewatch::RasterReader>();
}
