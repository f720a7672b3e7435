// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/check/checkFile.hpp"

namespace Tidewatch {

/// Checks a LAS or LAZ file (LAS 1.4 R15 and the versions before it). Errors of the reader are faults; other
/// findings are made here. The points are decoded once, block by block.
void checkLas(CheckReport& report, const Anchor::StrongPtr<Progress>& progress);

} // namespace Tidewatch
