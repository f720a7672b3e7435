// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/registerReaders.hpp"

#include <cstdlib>

namespace Support {

/// How the readers under test read: apart, or in this process where the environment says so. CTest runs the tests
/// of these readers both ways.
inline Tidewatch::Reading reading() {
    return std::getenv("TIDEWATCH_READ_IN_PROCESS") != nullptr ? Tidewatch::Reading::InProcess
                                                               : Tidewatch::Reading::Apart;
}

} // namespace Support
