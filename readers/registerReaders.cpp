// SPDX-License-Identifier: Apache-2.0
#include "readers/registerReaders.hpp"

#include "readers/bundle/BundleFileReader.hpp"
#include "readers/las/LasReader.hpp"
#ifdef TIDEWATCH_RASTER_LIBRARY
#include "readers/raster/RasterGate.hpp"
#endif

namespace Tidewatch {

void registerReaders() {
    // A reader takes the place of an earlier one of its name.
    ConvLib::registerReader(Anchor::makeStrong<LasReader>());
    ConvLib::registerReader(Anchor::makeStrong<BundleFileReader>());
#ifdef TIDEWATCH_RASTER_LIBRARY
    // The last to be asked, since some of its formats are plain text.
    ConvLib::registerReader(Anchor::makeStrong<RasterGate>());
#endif
}

} // namespace Tidewatch
