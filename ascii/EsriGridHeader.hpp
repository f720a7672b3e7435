// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/LineWriter.hpp"

#include <cstdint>
#include <string_view>

namespace ExportLib {

/// The header of an ESRI ASCII grid (Esri, "Esri ASCII raster format"): six lines of a key and a value. Rows of values
/// follow, the northernmost first; NODATA_VALUE marks a cell without a value.
struct EsriGridHeader {
    /// The text for a cell without a value, in the header and in rows.
    static constexpr std::string_view noData = "-9999.";
    static constexpr short noDataNumber = -9999;

    std::uint64_t columns = 0;
    std::uint64_t rows = 0;
    /// The centre of the lower left cell, in coordinate units.
    double lowerLeftX = 0;
    double lowerLeftY = 0;
    /// The format only supports square cells.
    double cellSize = 0;

    /// A length as written to the file, rounded to three decimals like coordinates and the cell size; coordinate units.
    [[nodiscard]] static double asWritten(double length) noexcept;

    void write(ConvLib::LineWriter& lines) const;
};

} // namespace ExportLib
