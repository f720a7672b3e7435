// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sheaf/FileRecord.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <span>

#include <lasdefinitions.hpp>

/// The header of a LAS file as the exporter writes it, in terms of LASlib and plain numbers.
///
/// The functions are in the order in which a header is built; each requires the ones before it. Sources: LAS
/// 1.4 R15, tables 3 (public header block), 7 (variable length records) and 24 (extra bytes).
namespace ExportLib {

/// The resolution of coordinates, in coordinate units, on all axes.
constexpr double coordinateStep = 0.00025;

/// The resolution of reflectances.
constexpr double reflectanceStep = 1.0 / 2184.0;

/// Sets version, point format and sizes for LAS 1.2, 1.3 or 1.4 (2, 3 or 4); false, and nothing is set, for
/// any other number.
[[nodiscard]] bool setVersion(LASheader& header, int version);

/// A corner rounded to whole steps (halves away from zero), from 0 or from an offset.
[[nodiscard]] double quantizedCorner(double value) noexcept;
[[nodiscard]] double quantizedCorner(double value, double step, double offset = 0) noexcept;

/// Sets extent, scale and offsets from the corners (x, y, z) of the box around the points. Offsets are the
/// box's centre rounded down to whole numbers.
void setExtent(LASheader& header, const std::array<double, 3>& lower, const std::array<double, 3>& upper);

/// Sets scale, offset and extent of one axis, 0 being x.
void setAxis(LASheader& header, std::size_t axis, double step, double offset, double lower, double upper);

/// Sets the two texts that identify the writer of the file.
void setIdentification(LASheader& header);

/// Sets the date of creation, truncating both numbers to 16 bits; 0 and 0 stand for the day of `now` in local
/// time, where the first of January has the number `firstDay`.
void setCreationDate(LASheader& header, int day, int year, std::time_t now, int firstDay = 0);

/// Adds a colour to each record.
void addColor(LASheader& header);

/// Whether records have a GPS time, and a colour.
[[nodiscard]] bool hasGpsTime(const LASheader& header) noexcept;
[[nodiscard]] bool hasGpsTime(unsigned pointFormat) noexcept;
[[nodiscard]] bool hasColor(const LASheader& header) noexcept;

/// Add an attribute to each record's extra bytes and describe it; return its offset there.
I32 addReflectance(LASheader& header);
I32 addAmplitude(LASheader& header);

/// Adds the record that describes extra bytes, with consecutive entries.
void addExtraBytesRecord(LASheader& header, std::span<const std::uint8_t> entries);

/// Adds a record, even if the header has one with the same ids: after the points if it is too long for a
/// variable length record. Not for records for which placeOfRecord() returns Nowhere.
void addRecord(LASheader& header, const Sheaf::FileRecord& record);

/// Whether the library that writes files has extended variable length records.
[[nodiscard]] bool writesTrailingRecords() noexcept;

/// Sets the number of points, and the points by return: counts[0] for the first return. LAS 1.4 has all 15
/// and a 64-bit number; older versions have 5, and the low 32 bits of the number.
void setPointCounts(LASheader& header, std::uint64_t total, std::span<const std::uint32_t, 15> counts);

} // namespace ExportLib
