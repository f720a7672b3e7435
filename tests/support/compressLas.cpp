// SPDX-License-Identifier: Apache-2.0
#include "support/compressLas.hpp"

#include <cstring>
#include <sstream>
#include <stdexcept>

// This header pulls namespace std into the global one; no other file of the tests includes it.
#include <laszip/laszip_api.h>

namespace Support {

namespace {

class Compressor {
public:
    Compressor() {
        if (laszip_create(&handle_) != 0)
            throw std::runtime_error("LASzip cannot be set up");
    }
    Compressor(const Compressor&) = delete;
    Compressor& operator=(const Compressor&) = delete;
    ~Compressor() { laszip_destroy(handle_); }

    [[nodiscard]] laszip_POINTER handle() const { return handle_; }

    void check(laszip_I32 answer) const {
        if (answer == 0)
            return;
        laszip_CHAR* text = nullptr;
        laszip_get_error(handle_, &text);
        throw std::runtime_error(text != nullptr ? text : "LASzip fails without a word");
    }

private:
    laszip_POINTER handle_ = nullptr;
};

void fill(laszip_point& to, const LasRecord& from, bool extended) {
    to.X = from.x;
    to.Y = from.y;
    to.Z = from.z;
    to.intensity = from.intensity;
    to.scan_direction_flag = from.scanDirection & 1U;
    to.edge_of_flight_line = from.edgeOfFlightLine & 1U;
    to.user_data = from.userData;
    to.point_source_ID = from.pointSourceId;
    if (extended) {
        to.extended_point_type = 1;
        to.extended_return_number = from.returnNumber & 15U;
        to.extended_number_of_returns = from.numberOfReturns & 15U;
        to.extended_classification = from.classification;
        to.extended_classification_flags = from.flags & 15U;
        to.extended_scanner_channel = from.scannerChannel & 3U;
        to.extended_scan_angle = from.scanAngle;
        // The library wants the older copies of these to agree.
        to.classification = from.classification < 32 ? from.classification & 31U : 0U;
        to.synthetic_flag = from.flags & 1U;
        to.keypoint_flag = (from.flags >> 1) & 1U;
        to.withheld_flag = (from.flags >> 2) & 1U;
    } else {
        to.return_number = from.returnNumber & 7U;
        to.number_of_returns = from.numberOfReturns & 7U;
        to.classification = from.classification & 31U;
        to.synthetic_flag = from.flags & 1U;
        to.keypoint_flag = (from.flags >> 1) & 1U;
        to.withheld_flag = (from.flags >> 2) & 1U;
        to.scan_angle_rank = static_cast<laszip_I8>(from.scanAngle);
    }
    to.gps_time = from.gpsTime;
    for (std::size_t channel = 0; channel < 3; ++channel)
        to.rgb[channel] = from.rgb[channel];
    to.rgb[3] = from.nearInfrared;
    std::memcpy(to.wave_packet, from.wavePacket.data(), from.wavePacket.size());
    if (!from.extraBytes.empty())
        std::memcpy(to.extra_bytes, from.extraBytes.data(), from.extraBytes.size());
}

} // namespace

std::string compressLas(const LasFileBuilder& file, std::uint32_t chunkSize) {
    LasFileBuilder plain = file;
    plain.points.clear();
    plain.evlrs.clear();
    std::string head = plain.build();
    const std::string full = file.build();

    const Compressor compressor;
    const laszip_POINTER handle = compressor.handle();
    compressor.check(laszip_set_chunk_size(handle, chunkSize));
    compressor.check(laszip_set_point_type_and_size(handle, static_cast<laszip_U8>(file.format),
                                                    static_cast<laszip_U16>(file.recordLength())));
    laszip_U8* record = nullptr;
    laszip_U32 recordSize = 0;
    compressor.check(laszip_create_laszip_vlr(handle, &record, &recordSize));
    head.append(record, record + recordSize);
    patch(head, 96, static_cast<std::uint32_t>(head.size()));
    patch(head, 100, static_cast<std::uint32_t>(file.vlrs.size() + 1));
    head[104] = static_cast<char>(file.format | 0x80U);
    // The counts and the bounds.
    head.replace(107, 24, full, 107, 24);
    head.replace(179, 48, full, 179, 48);
    if (file.minor >= 4)
        head.replace(247, 128, full, 247, 128);

    std::stringstream stream(std::ios::in | std::ios::out | std::ios::binary);
    stream << head;
    compressor.check(laszip_open_writer_stream(handle, stream, 1, 1));
    laszip_point* point = nullptr;
    compressor.check(laszip_get_point_pointer(handle, &point));
    for (const LasRecord& one : file.points) {
        fill(*point, one, LasParts(file.format).extended);
        compressor.check(laszip_write_point(handle));
    }
    compressor.check(laszip_close_writer(handle));

    std::string bytes = stream.str();
    if (file.minor >= 4 && !file.evlrs.empty()) {
        patch(bytes, 235, std::uint64_t{bytes.size()});
        patch(bytes, 243, static_cast<std::uint32_t>(file.evlrs.size()));
        bytes.append(full, number<std::uint64_t>(full, 235));
    }
    return bytes;
}

} // namespace Support
