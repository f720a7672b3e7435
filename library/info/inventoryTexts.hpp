// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/info/Inventory.hpp"

#include <cstddef>
#include <string>

namespace Tidewatch {

/// A table for the user with a line for each of the first `mostFiles` files; for a single file, a line for
/// each property.
[[nodiscard]] TIDEWATCH_API std::string inventoryTable(const Inventory& inventory,
                                                       std::size_t mostFiles = 40);

/// Grids, skeletons, charts and fields for the user: indented, columns aligned.
[[nodiscard]] TIDEWATCH_API std::string inventoryText(const Inventory& inventory);

/// Ranges of fields, classes and returns of the grids that have statistics.
[[nodiscard]] TIDEWATCH_API std::string statisticsText(const Inventory& inventory);

/// A JSON document with a final newline.
[[nodiscard]] TIDEWATCH_API std::string inventoryJson(const Inventory& inventory);

} // namespace Tidewatch
