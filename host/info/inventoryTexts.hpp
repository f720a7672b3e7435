// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/info/Inventory.hpp"

#include <string>

namespace Tidewatch {

/// A text for the user: indented, columns aligned.
[[nodiscard]] std::string inventoryText(const Inventory& inventory);

/// A JSON document with a final newline.
[[nodiscard]] std::string inventoryJson(const Inventory& inventory);

} // namespace Tidewatch
