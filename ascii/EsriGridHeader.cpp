// SPDX-License-Identifier: Apache-2.0
#include "ascii/EsriGridHeader.hpp"

#include <cmath>

namespace ExportLib {

namespace {

constexpr int decimals = 3;
constexpr double stepsPerUnit = 1000;

void writeCount(ConvLib::LineWriter& lines, std::string_view key, std::uint64_t value) {
    lines.text(key);
    lines.integer(value);
    lines.endLine();
}

void writeLength(ConvLib::LineWriter& lines, std::string_view key, double value) {
    lines.text(key);
    lines.fixed(value, decimals);
    lines.endLine();
}

} // namespace

double EsriGridHeader::asWritten(double length) noexcept {
    const double rounded = std::nearbyint(length * stepsPerUnit) / stepsPerUnit;
    return std::isfinite(rounded) ? rounded : length;
}

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
