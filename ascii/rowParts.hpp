// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/BasicConverterDefs.hpp"
#include "convlib/LineWriter.hpp"

#include <algorithm>
#include <cstdint>

namespace ExportLib {

/// Cells are numbered row by row. Calls use(row, from, to) for each row that cells from `begin` on and below `end`
/// belong to, with the part of its columns.
template <class Use>
void forEachRowPart(std::uint64_t begin, std::uint64_t end, std::uint64_t columns, Use&& use) {
    while (begin < end) {
        const std::uint64_t row = begin / columns;
        const std::uint64_t from = begin % columns;
        const std::uint64_t to = std::min(columns, from + (end - begin));
        use(row, from, to);
        begin += to - from;
    }
}

/// Writes the lines of rows without columns, of which there may be many.
template <class Watch>
void writeEmptyLines(ConvLib::LineWriter& lines, std::uint64_t rows, const Watch& watch) {
    for (std::uint64_t row = 0; row < rows; ++row) {
        if (row % ConvLib::BasicConverterDefs::stopInterval == 0)
            watch.ask();
        lines.endLine();
    }
}

} // namespace ExportLib
