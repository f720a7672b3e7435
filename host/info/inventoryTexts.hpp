// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/info/Inventory.hpp"

#include <string>

namespace Tidewatch {

/// For people: indented, columns aligned.
[[nodiscard]] std::string inventoryText(const Inventory& inventory);

/// For programs: a JSON document, ended by a newline.
[[nodiscard]] std::string inventoryJson(const Inventory& inventory);

} // namespace Tidewatch
