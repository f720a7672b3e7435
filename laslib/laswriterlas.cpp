// SPDX-License-Identifier: Apache-2.0
#include "laswriterlas.hpp"

#include "LittleEndian.hpp"
#include "formats/las/PointLayout.hpp"
#include "formats/las/layout.hpp"
#include "formats/las/records.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

namespace Place = Formats::Las::Header;
using Formats::Las::compressedFlag;

/// A sequence of header fields as they are in a file.
template <std::size_t size>
using Fields = std::array<char, size>;

constexpr bool isExtended(U8 format) {
    return Formats::Las::isExtendedFormat(format);
}

Fields<24> legacyCounts(const LASheader& header) {
    Fields<24> bytes{};
    // From format 6 on the 32-bit counts are no longer used and must be zero.
    if (!isExtended(header.point_data_format))
        LittleEndianWriter(bytes.data())
            .put(header.number_of_point_records)
            .put(header.number_of_points_by_return);
    return bytes;
}

Fields<48> extent(const LASheader& header) {
    Fields<48> bytes;
    LittleEndianWriter(bytes.data())
        .put(header.max_x)
        .put(header.min_x)
        .put(header.max_y)
        .put(header.min_y)
        .put(header.max_z)
        .put(header.min_z);
    return bytes;
}

Fields<140> extendedFields(const LASheader& header) {
    Fields<140> bytes;
    LittleEndianWriter writer(bytes.data());
    const auto chosen = [](U64 legacy, U64 wide) { return legacy != 0 ? legacy : wide; };
    writer.put(header.start_of_first_extended_variable_length_record)
        .put(header.number_of_extended_variable_length_records)
        .put(chosen(header.number_of_point_records, header.extended_number_of_point_records));
    for (std::size_t i = 0; i < std::size(header.extended_number_of_points_by_return); ++i)
        writer.put(chosen(i < 5 ? header.number_of_points_by_return[i] : 0,
                          header.extended_number_of_points_by_return[i]));
    return bytes;
}

/// The public header block. The record that describes the compression is included in the count of records.
std::vector<char> headerBlock(const LASheader& header, std::size_t descriptionSize) {
    std::vector<char> bytes(header.header_size);
    const bool compressed = descriptionSize != 0;
    LittleEndianWriter(bytes.data())
        .put(header.file_signature)
        .put(header.file_source_ID)
        .put(header.global_encoding)
        .put(header.project_ID_GUID_data_1)
        .put(header.project_ID_GUID_data_2)
        .put(header.project_ID_GUID_data_3)
        .put(header.project_ID_GUID_data_4)
        .put(header.version_major)
        .put(header.version_minor)
        .put(header.system_identifier)
        .put(header.generating_software)
        .put(header.file_creation_day)
        .put(header.file_creation_year)
        .put(header.header_size)
        .put(static_cast<U32>(header.offset_to_point_data + descriptionSize))
        .put(header.number_of_variable_length_records + (compressed ? 1U : 0U))
        .put(static_cast<U8>(header.point_data_format | (compressed ? compressedFlag : 0)))
        .put(header.point_data_record_length);
    const auto place = [&](U64 offset, const auto& fields) {
        std::copy(fields.begin(), fields.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset));
    };
    place(Place::legacyPointCount, legacyCounts(header));
    LittleEndianWriter(bytes.data() + Place::scale)
        .put(header.x_scale_factor)
        .put(header.y_scale_factor)
        .put(header.z_scale_factor)
        .put(header.x_offset)
        .put(header.y_offset)
        .put(header.z_offset);
    place(Place::bounds, extent(header));
    if (header.version_minor >= 3)
        LittleEndianWriter(bytes.data() + Place::waveform).put(header.start_of_waveform_data_packet_record);
    if (header.version_minor >= 4)
        place(Place::evlrOffset, extendedFields(header));
    return bytes;
}

Fields<LASvlr::headerSize> vlrHeader(const LASvlr& vlr) {
    Fields<LASvlr::headerSize> bytes;
    LittleEndianWriter(bytes.data())
        .put(vlr.reserved)
        .put(vlr.user_id)
        .put(vlr.record_id)
        .put(static_cast<U16>(vlr.data.size()))
        .put(vlr.description);
    return bytes;
}

bool describesExtraBytes(const LASvlr& vlr) {
    constexpr std::string_view user = Formats::Las::specificationUser;
    return vlr.record_id == Formats::Las::extraBytesId &&
           std::string_view(vlr.user_id, sizeof vlr.user_id).substr(0, user.size() + 1) ==
               std::string(user) + '\0';
}

Fields<Formats::Las::Record::extendedHeadSize> trailingHeader(const LASvlr& record) {
    Fields<Formats::Las::Record::extendedHeadSize> bytes;
    LittleEndianWriter(bytes.data())
        .put(record.reserved)
        .put(record.user_id)
        .put(record.record_id)
        .put(static_cast<U64>(record.data.size()))
        .put(record.description);
    return bytes;
}

std::span<const char> asChars(std::span<const U8> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// Records of point formats 0 to 3 (LAS 1.4 R15, tables 8 to 13).
void putPoint10(LittleEndianWriter& to, const LASpoint& point) {
    to.put(point.X)
        .put(point.Y)
        .put(point.Z)
        .put(point.intensity)
        .put(static_cast<U8>(point.return_number | point.number_of_returns << 3 |
                             point.scan_direction_flag << 6 | point.edge_of_flight_line << 7))
        .put(static_cast<U8>(point.classification | point.synthetic_flag << 5 | point.keypoint_flag << 6 |
                             point.withheld_flag << 7))
        .put(point.scan_angle_rank)
        .put(point.user_data)
        .put(point.point_source_ID);
}

// Records of point formats 6 to 8 (LAS 1.4 R15, tables 16 to 19). Flags and classes that were set in the
// older, narrower fields are included.
void putPoint14(LittleEndianWriter& to, const LASpoint& point) {
    const int flags = (point.extended_classification_flags & 8) | point.synthetic_flag |
                      point.keypoint_flag << 1 | point.withheld_flag << 2;
    to.put(point.X)
        .put(point.Y)
        .put(point.Z)
        .put(point.intensity)
        .put(static_cast<U8>(point.extended_return_number | point.extended_number_of_returns << 4))
        .put(static_cast<U8>(flags | point.extended_scanner_channel << 4 | point.scan_direction_flag << 6 |
                             point.edge_of_flight_line << 7))
        .put(
            static_cast<U8>(point.classification != 0 ? point.classification : point.extended_classification))
        .put(point.user_data)
        .put(point.extended_scan_angle)
        .put(point.point_source_ID)
        .put(point.gps_time);
}

void putColor(LittleEndianWriter& to, const LASpoint& point) {
    to.put(point.rgb[0]).put(point.rgb[1]).put(point.rgb[2]);
}

/// Copies in steps of a fixed size, which need no function call; the last one may reach into the next record.
void putExtraBytes(char* to, const LASpoint& point) {
    constexpr I32 step = LASpoint::extraBytesStep;
    for (I32 i = 0; i < point.extra_bytes_number; i += step)
        std::memcpy(to + i, point.extra_bytes + i, step);
}

} // namespace

LASwriterLAS::~LASwriterLAS() {
    close(true);
}

bool LASwriterLAS::open(const CHAR* fileName, const LASheader& header, bool compressed) {
    if (header.header_size != Formats::Las::headerSizeOf(header.version_minor)) {
        std::fprintf(stderr, "ERROR: wrong header size: %d but should be %d\n", int{header.header_size},
                     int{Formats::Las::headerSizeOf(header.version_minor)});
        return false;
    }
    LASpoint layout;
    if (!layout.init(&header, header.point_data_format, header.point_data_record_length))
        return false;

    file_.emplace(fileName);
    if (!file_->isOpen()) {
        std::fprintf(stderr, "ERROR: cannot open file '%s' for write\n", fileName);
        return false;
    }
    if (compressed) {
        encoder_.emplace(header.point_data_format, header.point_data_record_length);
        if (!encoder_->isReady()) {
            std::fprintf(stderr, "ERROR: LASzip cannot compress point type %d with point size %d\n",
                         int{header.point_data_format}, int{header.point_data_record_length});
            return false;
        }
    }
    const std::span<const U8> description = compressed ? encoder_->description() : std::span<const U8>();

    format_ = header.point_data_format;
    versionMinor_ = header.version_minor;
    recordLength_ = header.point_data_record_length;
    quantizer = static_cast<const LASquantizer&>(header);
    npoints = static_cast<I64>(header.number_of_point_records);
    if (versionMinor_ >= 4)
        trailingRecords_ = header.trailingRecords;

    append(headerBlock(header, description.size()));
    for (const LASvlr& vlr : header.vlrs) {
        append(vlrHeader(vlr));
        if (describesExtraBytes(vlr))
            attributesBegin_ = file_->position();
        append(asChars(vlr.data));
    }
    append(asChars(description));
    if (compressed) {
        stream_.emplace(&*file_);
        encoder_->begin(*stream_);
    }
    return true;
}

void LASwriterLAS::append(std::span<const char> bytes) {
    file_->sputn(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

void LASwriterLAS::overwrite(U64 position, std::span<const char> bytes) {
    file_->seek(position);
    append(bytes);
}

bool LASwriterLAS::isHealthy() const noexcept {
    return !file_->failed() && !hasFailed_;
}

void LASwriterLAS::work_side_by_side(std::size_t workers, RunPieces run) {
    // Some more pieces than workers: they do not take the same time.
    constexpr std::size_t pieces = 4;
    if (encoder_)
        encoder_->compressSideBySide(pieces * workers, std::move(run));
    else
        run_ = std::move(run);
    workers_ = workers;
}

/// Runs a step of the output; false if it fails. Callers do not expect exceptions: in LASlib there are none.
template <class Step>
bool LASwriterLAS::attempt(Step step) {
    try {
        return step();
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return false;
    }
}

BOOL LASwriterLAS::write_point(const LASpoint* point) {
    ++p_count;
    if (encoder_) {
        hasFailed_ = hasFailed_ || !attempt([&] { return encoder_->write(*point); });
        return isHealthy();
    }
    putRecord(file_->reserve(std::size_t{recordLength_} + LASpoint::extraBytesStep), *point);
    file_->advance(recordLength_);
    return isHealthy();
}

BOOL LASwriterLAS::write_points(std::size_t count, const MakePoints& make) {
    if (count == 0)
        return isHealthy();
    p_count += static_cast<I64>(count);
    hasFailed_ = hasFailed_ || !attempt([&] {
                     if (encoder_)
                         return encoder_->write(count, make);
                     writeRecords(count, make);
                     return true;
                 });
    return isHealthy();
}

/// Writes a record, and up to LASpoint::extraBytesStep bytes after it.
void LASwriterLAS::putRecord(char* to, const LASpoint& point) const {
    LittleEndianWriter writer(to);
    if (isExtended(format_)) {
        putPoint14(writer, point);
        if (format_ >= 7)
            putColor(writer, point);
        if (format_ == 8)
            writer.put(point.rgb[3]);
    } else {
        putPoint10(writer, point);
        if (format_ == 1 || format_ == 3)
            writer.put(point.gps_time);
        if (format_ >= 2)
            putColor(writer, point);
    }
    putExtraBytes(writer.position(), point);
}

/// Packs records side by side in memory, and writes them.
void LASwriterLAS::writeRecords(std::size_t count, const MakePoints& make) {
    constexpr std::size_t piecePoints = 8192;
    const std::size_t length = recordLength_;
    const std::size_t pieces = 4 * workers_;
    std::vector<std::vector<char>> records(pieces);
    std::atomic<bool> hasMemory = true;
    for (std::size_t begin = 0; begin < count;) {
        const std::size_t end = std::min(count, begin + pieces * piecePoints);
        const std::size_t used = (end - begin + piecePoints - 1) / piecePoints;
        run_(used, [&](std::size_t piece) {
            const std::size_t first = begin + piece * piecePoints;
            const std::size_t last = std::min(end, first + piecePoints);
            try {
                records[piece].resize((last - first) * length + LASpoint::extraBytesStep);
                char* to = records[piece].data();
                make(first, last, [&](const LASpoint& point) {
                    putRecord(to, point);
                    to += length;
                });
            } catch (const std::bad_alloc&) {
                hasMemory = false;
            }
        });
        if (!hasMemory)
            throw std::bad_alloc();
        for (const std::vector<char>& piece : std::span(records).first(used))
            append(std::span(piece).first(piece.size() - LASpoint::extraBytesStep));
        begin = end;
    }
}

BOOL LASwriterLAS::update_header(const LASheader* header, BOOL use_inventory, BOOL update_extra_bytes) {
    if (use_inventory || !file_ || !file_->isOpen())
        return false;
    npoints = static_cast<I64>(header->number_of_point_records);
    overwrite(Place::legacyPointCount, legacyCounts(*header));
    overwrite(Place::bounds, extent(*header));
    if (header->version_minor >= 3)
        overwrite(Place::waveform, Fields<8>{});
    if (header->version_minor >= 4)
        overwrite(Place::evlrOffset, extendedFields(*header));
    if (update_extra_bytes && attributesBegin_ != 0) {
        file_->seek(attributesBegin_);
        for (const LASattribute& attribute : header->attributeList())
            append(attribute.toBytes());
    }
    file_->seekEnd();
    return isHealthy();
}

void LASwriterLAS::appendTrailingRecords() {
    if (trailingRecords_.empty())
        return;
    Fields<12> place;
    LittleEndianWriter(place.data()).put(file_->position()).put(static_cast<U32>(trailingRecords_.size()));
    for (const LASvlr& record : trailingRecords_) {
        append(trailingHeader(record));
        append(asChars(record.data));
    }
    overwrite(Place::evlrOffset, place);
    file_->seekEnd();
}

I64 LASwriterLAS::close(BOOL update_npoints) {
    if (!file_ || !file_->isOpen())
        return 0;
    if (encoder_) {
        hasFailed_ = !attempt([&] { return encoder_->end(); }) || hasFailed_;
        stream_.reset();
        encoder_.reset();
    }
    file_->seekEnd();
    appendTrailingRecords();
    const auto bytes = static_cast<I64>(file_->position());
    if (update_npoints && p_count != npoints) {
        if (npoints != 0)
            std::fprintf(stderr, "WARNING: written %lld points but expected %lld points\n", p_count, npoints);
        const bool isWide = versionMinor_ >= 4;
        Fields<4> legacyCount;
        LittleEndianWriter(legacyCount.data())
            .put(isWide && isExtended(format_) ? U32{0} : static_cast<U32>(p_count));
        overwrite(Place::legacyPointCount, legacyCount);
        if (isWide) {
            Fields<8> count;
            LittleEndianWriter(count.data()).put(p_count);
            overwrite(Place::pointCount, count);
        }
    }
    const bool arrived = file_->close() && !hasFailed_;
    return arrived ? bytes : -bytes;
}
