// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/las/PointDecoder.hpp"
#include "support/LasFileBuilder.hpp"
#include "support/MemoryFile.hpp"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Support {

/// A decoded point as the builder's record, for comparison; the reader does not give wave packets.
[[nodiscard]] inline LasRecord record(const Tidewatch::Las::Point& p, std::size_t extraByteCount) {
    LasRecord r;
    r.x = p.x;
    r.y = p.y;
    r.z = p.z;
    r.intensity = p.intensity;
    r.returnNumber = p.returnNumber;
    r.numberOfReturns = p.numberOfReturns;
    r.scanDirection = p.scanDirection;
    r.edgeOfFlightLine = p.edgeOfFlightLine;
    r.classification = p.classification;
    r.flags = p.flags;
    r.scannerChannel = p.scannerChannel;
    r.userData = p.userData;
    r.scanAngle = p.scanAngle;
    r.pointSourceId = p.pointSourceId;
    r.gpsTime = p.gpsTime;
    r.rgb = p.rgb;
    r.nearInfrared = p.nearInfrared;
    for (std::size_t i = 0; i < extraByteCount; ++i)
        r.extraBytes += static_cast<char>(p.extraBytes[i]);
    return r;
}

/// Some points of a file, with a decoder that may have been used before.
[[nodiscard]] inline std::vector<LasRecord> decodeRange(Tidewatch::Las::PointDecoder& decoder,
                                                        const Tidewatch::Las::LasFile& file,
                                                        std::uint64_t first, std::uint64_t count) {
    std::vector<LasRecord> records;
    decoder.decode(first, count, [&](std::span<const Tidewatch::Las::Point> points) {
        for (const Tidewatch::Las::Point& point : points)
            records.push_back(record(point, file.header().extraByteCount()));
    });
    return records;
}

/// All points of a file.
[[nodiscard]] inline std::vector<LasRecord> decodeLas(const std::string& path) {
    const auto file = std::make_shared<Tidewatch::Las::LasFile>(path);
    Tidewatch::Las::PointDecoder decoder(file);
    return decodeRange(decoder, *file, 0, file->header().pointCount);
}

/// The same for the bytes of a file.
[[nodiscard]] inline std::vector<LasRecord> decodeLasBytes(const std::string& bytes) {
    return decodeLas(MemoryFile(bytes).path());
}

/// The message with which reading all of a file fails; empty where it does not.
template <class Error>
[[nodiscard]] std::string failureOfLas(const std::string& bytes) {
    try {
        static_cast<void>(decodeLasBytes(bytes));
    } catch (const Error& error) {
        return error.what();
    }
    return {};
}

/// Wave packets are not read, so records are compared without them.
[[nodiscard]] inline std::vector<LasRecord> withoutWavePackets(std::vector<LasRecord> records) {
    for (LasRecord& one : records)
        one.wavePacket = {};
    return records;
}

} // namespace Support
