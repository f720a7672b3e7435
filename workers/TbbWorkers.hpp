// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "anchor/Workers.hpp"

namespace Tidewatch {

/// Workers on threads of oneTBB, so many at a time, the calling thread included. Null for one: then there is nothing
/// to lend.
[[nodiscard]] Anchor::StrongPtr<Anchor::Workers> makeWorkers(unsigned count);

} // namespace Tidewatch
