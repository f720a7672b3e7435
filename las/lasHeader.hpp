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
/// The functions stand in the order in which a header is put together; each needs the ones before it.
/// Sources: LAS 1.4 R15, tables 3 (public header block), 7 (variable length records) and 24 (extra bytes).
namespace ExportLib {

/// The step between neighbouring coordinates, in coordinate units, on all axes.
constexpr double coordinateStep = 0.00025;

/// The step between neighbouring reflectances.
constexpr double reflectanceStep = 1.0 / 2184.0;

/// Sets version, point format and sizes for LAS 1.2, 1.3 or 1.4 (2, 3 or 4); false, and nothing is set, for
/// any other number.
[[nodiscard]] bool setVersion(LASheader& header, int version);

/// A corner rounded to whole steps (half a step away from zero), from 0 or from an offset.
[[nodiscard]] double quantizedCorner(double value) noexcept;
[[nodiscard]] double quantizedCorner(double value, double step, double offset = 0) noexcept;

/// Sets extent, scale and offsets from the corners (x, y, z) of the box around the points. Offsets are the
/// box's centre rounded down to whole numbers.
void setExtent(LASheader& header, const std::array<double, 3>& lower, const std::array<double, 3>& upper);

/// Sets scale, offset and extent of one axis, 0 being x.
void setAxis(LASheader& header, std::size_t axis, double step, double offset, double lower, double upper);

/// Sets the two texts that say what wrote the file.
void setIdentification(LASheader& header);

/// Sets the date of creation, cutting both numbers to 16 bits; 0 and 0 stand for the day of `now` in local
/// time, the first of January having the number `firstDay`.
void setCreationDate(LASheader& header, int day, int year, std::time_t now, int firstDay = 0);

/// Makes room for a colour in each record.
void addColor(LASheader& header);

/// Whether records have a GPS time, and a colour.
[[nodiscard]] bool hasGpsTime(const LASheader& header) noexcept;
[[nodiscard]] bool hasGpsTime(unsigned pointFormat) noexcept;
[[nodiscard]] bool hasColor(const LASheader& header) noexcept;

/// Make room for an attribute in each record's extra bytes and describe it; give the place where it begins
/// there.
I32 addReflectance(LASheader& header);
I32 addAmplitude(LASheader& header);

/// Adds the record that describes extra bytes, of entries one after the other.
void addExtraBytesRecord(LASheader& header, std::span<const std::uint8_t> entries);

/// Adds a record, also where the header has one of the same ids: behind the points where it is too long for a variable
/// length record. Only for one that placeOfRecord() has a place for.
void addRecord(LASheader& header, const Sheaf::FileRecord& record);

/// Whether the library that writes files has extended variable length records.
[[nodiscard]] bool writesTrailingRecords() noexcept;

/// Sets the number of points, and how many there are of each return: counts[0] of the first. LAS 1.4 takes
/// all 15 and 64 bits; older versions take 5, and the low 32 bits of the number.
void setPointCounts(LASheader& header, std::uint64_t total, std::span<const std::uint32_t, 15> counts);

} // namespace ExportLib
