// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sheaf/MemBase.hpp"

namespace Tidewatch {

/// The most by which a floating-point number of an array differs from its text of so many decimals, where
/// that is more than the noise of the number's type; 0 for integers and colours. Numbers that are not finite
/// are kept by any text.
[[nodiscard]] double textRounding(const Sheaf::MemBase& array, unsigned int decimals);

} // namespace Tidewatch
