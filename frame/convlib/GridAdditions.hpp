// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sheaf/FileRecord.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace ConvLib {

/// What a host wants in the files of a grid that no exporter knows of by itself, such as its coordinate reference
/// system. Each exporter takes what its format has a place for.
struct GridAdditions {
    /// Records for the header of a LAS file, in order, before those that the exporter takes from the grid.
    std::vector<Sheaf::FileRecord> records = {};
    /// Bits that are set in the header of a LAS file (LAS 1.4 R15, "Global Encoding").
    std::uint16_t headerBits = 0;
    /// The text of a .prj file beside each ESRI ASCII grid that has a file of its own; empty for none.
    std::string prj = {};

    [[nodiscard]] bool empty() const noexcept { return records.empty() && headerBits == 0 && prj.empty(); }
};

} // namespace ConvLib
