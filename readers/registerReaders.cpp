// SPDX-License-Identifier: Apache-2.0
#include "readers/registerReaders.hpp"

#include "readers/bundle/BundleFileReader.hpp"
#include "readers/las/LasReader.hpp"
#include "readers/raster/RasterReader.hpp"

namespace Tidewatch {

void registerReaders(Reading reading) {
    // A reader takes the place of an earlier one of its name.
    ConvLib::registerReader(Anchor::makeStrong<LasReader>());
    ConvLib::registerReader(Anchor::makeStrong<BundleFileReader>(reading));
#ifdef TIDEWATCH_RASTERS
    // The last to be asked, since some of its formats are plain text.
    ConvLib::registerReader(Anchor::makeStrong<RasterReader>(reading));
#endif
}

} // namespace Tidewatch
