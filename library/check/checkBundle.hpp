// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/check/checkFile.hpp"

namespace Tidewatch {

/// Checks a file by reading all of it with the registered readers: every array is created once, and released before the
/// next one is.
void checkBundle(CheckReport& report, const CheckOptions& options,
                 const Anchor::StrongPtr<Progress>& progress);

} // namespace Tidewatch
