// SPDX-License-Identifier: Apache-2.0
#include "las/lasHeader.hpp"

#include "formats/las/layout.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

namespace ExportLib {

namespace {

/// LASlib's number of the attribute type U16.
constexpr U32 unsigned16 = 2;

I32 addAttribute(LASheader& header, const LASattribute& attribute) {
    const I32 index = header.add_attribute(attribute);
    header.update_extra_bytes_vlr();
    // The size of all attributes so far is added, not that of the new one, so a file with both has two
    // undescribed bytes in each record. Readers of these files expect records of that length: keep it.
    header.point_data_record_length =
        static_cast<U16>(header.point_data_record_length + header.get_attributes_size());
    return header.get_attribute_start(index);
}

} // namespace

bool setVersion(LASheader& header, int version) {
    if (version < 2 || version > 4)
        return false;
    const bool isExtended = version == 4;
    header.version_major = 1;
    header.version_minor = static_cast<U8>(version);
    header.point_data_format = isExtended ? 6 : 1;
    header.point_data_record_length = isExtended ? 30 : 28;
    header.header_size = isExtended ? 375 : version == 3 ? 235 : 227;
    header.offset_to_point_data = header.header_size;
    return true;
}

double quantizedCorner(double value) noexcept {
    return std::round(value * 4000.0) * coordinateStep;
}

double quantizedCorner(double value, double step, double offset) noexcept {
    if (step == coordinateStep)
        return quantizedCorner(value);
    return std::round((value - offset) / step) * step + offset;
}

void setAxis(LASheader& header, std::size_t axis, double step, double offset, double lower, double upper) {
    double* const steps[]{&header.x_scale_factor, &header.y_scale_factor, &header.z_scale_factor};
    double* const offsets[]{&header.x_offset, &header.y_offset, &header.z_offset};
    double* const lowest[]{&header.min_x, &header.min_y, &header.min_z};
    double* const highest[]{&header.max_x, &header.max_y, &header.max_z};
    *steps[axis] = step;
    *offsets[axis] = offset;
    *lowest[axis] = lower;
    *highest[axis] = upper;
}

void setExtent(LASheader& header, const std::array<double, 3>& lower, const std::array<double, 3>& upper) {
    header.x_scale_factor = coordinateStep;
    header.y_scale_factor = coordinateStep;
    header.z_scale_factor = coordinateStep;
    header.min_x = quantizedCorner(lower[0]);
    header.min_y = quantizedCorner(lower[1]);
    header.min_z = quantizedCorner(lower[2]);
    header.max_x = quantizedCorner(upper[0]);
    header.max_y = quantizedCorner(upper[1]);
    header.max_z = quantizedCorner(upper[2]);
    const auto offset = [](double low, double high) { return std::floor((low + high) / 2); };
    header.x_offset = offset(header.min_x, header.max_x);
    header.y_offset = offset(header.min_y, header.max_y);
    header.z_offset = offset(header.min_z, header.max_z);
}

void setIdentification(LASheader& header) {
    std::snprintf(header.generating_software, sizeof header.generating_software, "%.9s", "Tidewatch");
    std::snprintf(header.system_identifier, sizeof header.system_identifier, "%.20s", "BluestoneSurveyGroup");
}

void setCreationDate(LASheader& header, int day, int year, std::time_t now, int firstDay) {
    if (day == 0 && year == 0) {
        std::tm today{};
        ::localtime_r(&now, &today);
        // Counted from 0, where the LAS format counts from 1: all existing files are dated that way, and
        // users compare dates.
        day = today.tm_yday + firstDay;
        year = today.tm_year + 1900;
    }
    header.file_creation_day = static_cast<U16>(day);
    header.file_creation_year = static_cast<U16>(year);
}

void addColor(LASheader& header) {
    // Formats 1 and 6 become 2 and 7. Format 2 has no GPS time, so its 8 bytes remain as extra bytes.
    header.point_data_format = static_cast<U8>(header.point_data_format + 1);
    header.point_data_record_length = static_cast<U16>(header.point_data_record_length + 6);
}

bool hasGpsTime(const LASheader& header) noexcept {
    return hasGpsTime(header.point_data_format);
}

bool hasGpsTime(unsigned pointFormat) noexcept {
    return pointFormat != 0 && pointFormat != 2;
}

bool hasColor(const LASheader& header) noexcept {
    return header.point_data_format == 2 || header.point_data_format == 3 || header.point_data_format >= 7;
}

I32 addReflectance(LASheader& header) {
    LASattribute attribute(unsigned16, "BSG_Reflectance", "Reflectance between -25:5 [-]");
    attribute.set_scale(reflectanceStep);
    attribute.set_offset(-25.0);
    return addAttribute(header, attribute);
}

I32 addAmplitude(LASheader& header) {
    LASattribute attribute(unsigned16, "Amplitude", "Amplitude between 0:65536 [-]");
    attribute.set_scale(1.0);
    attribute.set_offset(0.0);
    return addAttribute(header, attribute);
}

void addExtraBytesRecord(LASheader& header, std::span<const std::uint8_t> entries) {
    auto* const data = new U8[entries.size()];
    std::copy(entries.begin(), entries.end(), data);
    header.add_vlr("LASF_Spec", 4, static_cast<U16>(entries.size()), data);
}

namespace {

/// Not every library that this is compiled against has them.
template <class Header>
constexpr bool hasTrailingRecords = requires(Header& header) {
    header.trailingRecords;
};

template <class Header>
void addTrailingRecord(Header& header, const Sheaf::FileRecord& record) {
    if constexpr (hasTrailingRecords<Header>) {
        typename decltype(header.trailingRecords)::value_type added;
        record.userId.copy(added.user_id, sizeof added.user_id);
        record.description.copy(added.description, sizeof added.description);
        added.record_id = record.recordId;
        added.data.assign(record.bytes.begin(), record.bytes.end());
        header.add_trailing_record(std::move(added));
    }
}

} // namespace

bool writesTrailingRecords() noexcept {
    return hasTrailingRecords<LASheader>;
}

void addRecord(LASheader& header, const Sheaf::FileRecord& record) {
    if (record.bytes.size() > Formats::Las::Record::largestPayload) {
        addTrailingRecord(header, record);
        return;
    }
    auto* const data = new U8[record.bytes.size()];
    std::copy(record.bytes.begin(), record.bytes.end(), data);
    header.add_vlr(record.userId.c_str(), record.recordId, static_cast<U16>(record.bytes.size()), data, false,
                   record.description.c_str(), true);
    // The call reserves one byte for a terminator, which the format does not require.
    record.description.copy(header.vlrs[header.number_of_variable_length_records - 1].description,
                            Formats::Las::textSize);
}

void setPointCounts(LASheader& header, std::uint64_t total, std::span<const std::uint32_t, 15> counts) {
    if (header.version_minor == 4) {
        header.extended_number_of_point_records = total;
        std::copy(counts.begin(), counts.end(), header.extended_number_of_points_by_return);
    } else {
        header.number_of_point_records = static_cast<U32>(total);
        std::copy_n(counts.begin(), 5, header.number_of_points_by_return);
    }
}

} // namespace ExportLib
