// SPDX-License-Identifier: Apache-2.0
#include "ascii/EsriGridHeader.hpp"

namespace ExportLib {

namespace {

void writeCount(ConvLib::LineWriter& lines, std::string_view key, std::uint64_t value) {
    lines.text(key);
    lines.integer(value);
    lines.endLine();
}

void writeLength(ConvLib::LineWriter& lines, std::string_view key, double value) {
    lines.text(key);
    lines.fixed(value, 3);
    lines.endLine();
}

} // namespace

void EsriGridHeader::write(ConvLib::LineWriter& lines) const {
    writeCount(lines, "NCOLS ", columns);
    writeCount(lines, "NROWS ", rows);
    writeLength(lines, "XLLCENTER ", lowerLeftX);
    writeLength(lines, "YLLCENTER ", lowerLeftY);
    writeLength(lines, "CELLSIZE ", cellSize);
    lines.text("NODATA_VALUE ");
    lines.text(noData);
    lines.endLine();
}

} // namespace ExportLib
