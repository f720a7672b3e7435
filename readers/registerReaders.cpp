// SPDX-License-Identifier: Apache-2.0
#include "readers/registerReaders.hpp"

#include "readers/bundle/BundleFileReader.hpp"
#include "readers/las/LasReader.hpp"
#include "readers/raster/RasterReader.hpp"

namespace Tidewatch {

void registerReaders(Reading reading) {
    // A reader replaces an earlier one of the same name.
    ConvLib::registerReader(Anchor::makeStrong<LasReader>());
    ConvLib::registerReader(Anchor::makeStrong<BundleFileReader>(reading));
#ifdef TIDEWATCH_RASTERS
    // Last, since it has formats without a signature (plain text).
    ConvLib::registerReader(Anchor::makeStrong<RasterReader>(reading));
#endif
}

} // namespace Tidewatch
