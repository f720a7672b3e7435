// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ascii/FragmentWatch.hpp"
#include "ascii/GridFragment.hpp"
#include "ascii/TextFile.hpp"
#include "ascii/elementText.hpp"
#include "ascii/rowParts.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>

namespace ExportLib {

/// Writes the header and the cells of a fragment, northernmost row first, and returns the number of cells. A
/// value has a blank on either side; a cell without a value has one only after it.
template <Scalar T, bool isObserved>
std::uint64_t writeCells(ConvLib::LineWriter& lines, const GridFragment& fragment,
                         const GridFragment::CellTypes& types, const Sheaf::MemArray<3, T>& values,
                         const std::array<bool, 256>& accepted, unsigned int precision,
                         FragmentWatch<T, isObserved>& watch) {
    fragment.header().write(lines);
    const std::uint64_t rows = fragment.rowCount();
    const std::uint64_t first = fragment.firstColumn();
    const std::uint64_t columns = fragment.endColumn() - std::min(first, fragment.endColumn());
    if (columns == 0) {
        writeEmptyLines(lines, rows, watch);
        return 0;
    }
    watch.write(
        lines, rows * columns,
        [&](ConvLib::LineText& text, std::size_t begin, std::size_t end, auto& counts) {
            forEachRowPart(begin, end, columns,
                           [&](std::uint64_t fromTop, std::uint64_t from, std::uint64_t to) {
                               const std::uint64_t row = rows - 1 - fromTop;
                               const unsigned char* const typesOfRow =
                                   types.base_vector().data() + row * types.extents()[0] + first;
                               const T* const valuesOfRow =
                                   values.base_vector().data() + row * values.extents()[0] + first;
                               for (std::uint64_t column = from; column < to; ++column) {
                                   if (accepted[typesOfRow[column]]) {
                                       toText(text, valuesOfRow[column], precision);
                                       counts.addCell(valuesOfRow[column], typesOfRow[column]);
                                   } else {
                                       text.text(EsriGridHeader::noData);
                                   }
                                   text.character(' ');
                               }
                               if (to == columns)
                                   text.endLine();
                           });
        },
        [](std::size_t, std::size_t) { return std::span<const T>(); });
    return rows * columns;
}

template <Scalar T, bool isObserved>
std::uint64_t writeCells(TextFile& file, const CheckType& c, const GridFragment& fragment,
                         const GridFragment::CellTypes& types, const Sheaf::MemArray<3, T>& values) {
    FragmentWatch<T, isObserved> watch(c, decimalsFor(c.precision));
    return writeCells(file.lines(), fragment, types, values, acceptedCellTypes(c.cellTypeFilter), c.precision,
                      watch);
}

/// Writes a fragment of numbers on a uniform grid as an ESRI ASCII grid. The file is created once the
/// fragment is known to be flat; it stays empty if cell types or values are missing or do not cover the grid,
/// or if overlaps exceed it.
template <Scalar T>
void writeEsriGrid(CheckType& c, const Sheaf::UniformCartesianArray& lattice) {
    const auto fragment = GridFragment::make(c, lattice);
    if (!fragment)
        return;
    TextFile file(fragment->path(c.outputPath, c.tileSuffix), c.append, c.flushLines);
    std::uint64_t cells = 0;
    if (const auto types = fragment->cellTypes(c)) {
        const auto values = Anchor::dynamicCast<Sheaf::MemArray<3, T>>(c.data->create(false));
        if (!values || !fragment->isCoveredBy(*values))
            // Without values there is nothing to write: the fragment is abandoned with the same message.
            reportUnusableCells();
        else if (!fragment->overlapsFit())
            reportLargeOverlap();
        else
            cells = c.isObserved() ? writeCells<T, true>(file, c, *fragment, *types, *values)
                                   : writeCells<T, false>(file, c, *fragment, *types, *values);
    }
    c.written = file.close(cells);
}

} // namespace ExportLib
