// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/check/checkFile.hpp"

namespace Tidewatch {

/// Checks a file by reading all of it with the registered readers: every array is created and released, one
/// at a time.
void checkBundle(CheckReport& report, const CheckOptions& options,
                 const Anchor::StrongPtr<Progress>& progress);

} // namespace Tidewatch
