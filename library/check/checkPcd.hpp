// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/check/checkFile.hpp"

namespace Tidewatch {

/// Checks a PCD file (Point Cloud Library, "PCD (Point Cloud Data) file format", version .7): its header and,
/// for ascii data, the values; for binary data only the size.
void checkPcd(CheckReport& report, const Anchor::StrongPtr<Progress>& progress);

} // namespace Tidewatch
