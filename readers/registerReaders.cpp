// SPDX-License-Identifier: Apache-2.0
#include "readers/registerReaders.hpp"

#include "readers/BundleFileReader.hpp"
#include "readers/LasReader.hpp"

namespace Tidewatch {

void registerReaders() {
    // A reader takes the place of an earlier one of its name.
    ConvLib::registerReader(Anchor::makeStrong<LasReader>());
    ConvLib::registerReader(Anchor::makeStrong<BundleFileReader>());
}

} // namespace Tidewatch
