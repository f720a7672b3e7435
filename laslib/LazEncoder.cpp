// SPDX-License-Identifier: Apache-2.0
#include "LazEncoder.hpp"

#include "LittleEndian.hpp"

#include <cstddef>
#include <cstring>
#include <ostream>
#include <string_view>
#include <vector>

#include <laszip/laszip_api.h>

namespace {

// LASlib's description of the compression (release 221128) instead of the LASzip library's own: files are
// compared byte by byte with those of LASlib.
constexpr U16 reservedMark = 0xAABB;
constexpr std::string_view descriptionText = "by laszip of LAStools (221128)";
constexpr std::size_t descriptionOffset = 22;

// The fields from X to the return numbers have the same layout in both points.
static_assert(offsetof(LASpoint, X) == offsetof(laszip_point_struct, X));
static_assert(offsetof(LASpoint, intensity) == offsetof(laszip_point_struct, intensity));
static_assert(offsetof(LASpoint, scan_angle_rank) == offsetof(laszip_point_struct, scan_angle_rank));
static_assert(offsetof(LASpoint, user_data) == offsetof(laszip_point_struct, user_data));
static_assert(offsetof(LASpoint, point_source_ID) == offsetof(laszip_point_struct, point_source_ID));
static_assert(offsetof(LASpoint, extended_scan_angle) == offsetof(laszip_point_struct, extended_scan_angle));
static_assert(offsetof(LASpoint, extended_classification) ==
              offsetof(laszip_point_struct, extended_classification));
static_assert(sizeof(LASpoint::rgb) == sizeof(laszip_point_struct::rgb));

/// Copies bytes that are at the same place in both points. Bit fields are copied by the byte that they share,
/// and nothing wider, because the processor stalls on a wide read of what was just written in parts.
template <std::size_t... place>
void copyBytes(laszip_point_struct& to, const LASpoint& from) {
    auto* const target = reinterpret_cast<unsigned char*>(&to);
    const auto* const source = reinterpret_cast<const unsigned char*>(&from);
    ((target[place] = source[place]), ...);
}

} // namespace

struct LazEncoder::Library {
    laszip_POINTER writer = nullptr;
    laszip_point_struct* point = nullptr;
    std::vector<U8> description;

    ~Library() {
        if (writer != nullptr)
            laszip_destroy(writer);
    }
};

LazEncoder::LazEncoder(U8 format, U16 recordLength) : library_(std::make_unique<Library>()) {
    Library& library = *library_;
    U8* bytes = nullptr;
    U32 size = 0;
    if (laszip_create(&library.writer) != 0 || laszip_request_native_extension(library.writer, 1) != 0 ||
        laszip_set_point_type_and_size(library.writer, format, recordLength) != 0 ||
        laszip_create_laszip_vlr(library.writer, &bytes, &size) != 0)
        return;
    library.description.assign(bytes, bytes + size);
    const auto at = [&](std::size_t offset) {
        return reinterpret_cast<char*>(library.description.data()) + offset;
    };
    LittleEndianWriter(at(0)).put(reservedMark);
    std::memset(at(descriptionOffset), 0, 32);
    descriptionText.copy(at(descriptionOffset), 32);
}

LazEncoder::~LazEncoder() = default;

bool LazEncoder::isReady() const noexcept {
    return !library_->description.empty();
}

std::span<const U8> LazEncoder::description() const noexcept {
    return library_->description;
}

bool LazEncoder::begin(std::ostream& stream) {
    // The library allocates the point's extra bytes here, so the point is fetched afterwards.
    return laszip_open_writer_stream(library_->writer, stream, 1, 1) == 0 &&
           laszip_get_point_pointer(library_->writer, &library_->point) == 0;
}

bool LazEncoder::write(const LASpoint& point) {
    laszip_point_struct& copy = *library_->point;
    copy.X = point.X;
    copy.Y = point.Y;
    copy.Z = point.Z;
    copy.intensity = point.intensity;
    copyBytes<14, 15>(copy, point); // returns and flags; class and flags
    copy.scan_angle_rank = point.scan_angle_rank;
    copy.user_data = point.user_data;
    copy.point_source_ID = point.point_source_ID;
    copy.extended_scan_angle = point.extended_scan_angle;
    copyBytes<22, 23, 24>(copy, point); // type, channel and flags; class; returns
    copy.gps_time = point.gps_time;
    copy.rgb[0] = point.rgb[0];
    copy.rgb[1] = point.rgb[1];
    copy.rgb[2] = point.rgb[2];
    copy.rgb[3] = point.rgb[3];
    if (point.extra_bytes_number > 0)
        std::memcpy(copy.extra_bytes, point.extra_bytes, static_cast<std::size_t>(point.extra_bytes_number));
    return laszip_write_point(library_->writer) == 0;
}

bool LazEncoder::end() {
    return laszip_close_writer(library_->writer) == 0;
}
