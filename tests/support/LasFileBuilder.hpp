// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

namespace Support {

/// Puts a number as little-endian bytes over those at `place`.
template <class T>
void patch(std::string& bytes, std::size_t place, T value) {
    const auto raw = std::bit_cast<std::array<char, sizeof(T)>>(value);
    static_assert(std::endian::native == std::endian::little);
    std::copy(raw.begin(), raw.end(), bytes.begin() + static_cast<std::ptrdiff_t>(place));
}

template <class T>
void append(std::string& bytes, T value) {
    bytes.resize(bytes.size() + sizeof(T));
    patch(bytes, bytes.size() - sizeof(T), value);
}

/// Throws std::out_of_range beyond the end.
template <class T>
[[nodiscard]] T number(const std::string& bytes, std::size_t place) {
    std::array<char, sizeof(T)> raw{};
    for (std::size_t i = 0; i < raw.size(); ++i)
        raw[i] = bytes.at(place + i);
    return std::bit_cast<T>(raw);
}

/// Everything that a point record of any format may hold.
struct LasRecord {
    std::int32_t x = 0, y = 0, z = 0;
    std::uint16_t intensity = 0;
    std::uint8_t returnNumber = 1, numberOfReturns = 1;
    std::uint8_t scanDirection = 0, edgeOfFlightLine = 0;
    std::uint8_t classification = 0, flags = 0, scannerChannel = 0, userData = 0;
    std::int16_t scanAngle = 0;
    std::uint16_t pointSourceId = 0;
    double gpsTime = 0;
    std::array<std::uint16_t, 3> rgb{};
    std::uint16_t nearInfrared = 0;
    std::array<char, 29> wavePacket{};
    std::string extraBytes;

    friend bool operator==(const LasRecord&, const LasRecord&) = default;
};

/// What a point format has beside the 20 or 30 basic bytes.
struct LasParts {
    bool extended, gpsTime, rgb, nearInfrared, wavePacket;
    explicit LasParts(unsigned format)
        : extended(format >= 6),
          gpsTime(format == 1 || format >= 3),
          rgb(format == 2 || format == 3 || format == 5 || format == 7 || format == 8 || format == 10),
          nearInfrared(format == 8 || format == 10),
          wavePacket(format == 4 || format == 5 || format == 9 || format == 10) {}

    [[nodiscard]] std::size_t size() const {
        return (extended ? 30U : 20U + (gpsTime ? 8U : 0U)) + (rgb ? 6U : 0U) + (nearInfrared ? 2U : 0U) +
               (wavePacket ? 29U : 0U);
    }
};

/// Writes plain LAS files of every version and point format byte by byte, for tests. Written from the tables
/// of the LAS 1.0 to 1.4 descriptions and sharing nothing with the reader.
struct LasFileBuilder {
    struct Vlr {
        std::string userId;
        std::uint16_t recordId;
        std::string payload;
    };

    unsigned minor = 2;
    unsigned format = 0;
    std::uint16_t globalEncoding = 0;
    std::array<double, 3> scale{0.01, 0.01, 0.01};
    std::array<double, 3> offset{0, 0, 0};
    std::size_t extraByteCount = 0;
    std::string headerTail;     ///< bytes between the header's standard part and the first record
    std::string startSignature; ///< bytes before the first point (LAS 1.0)
    std::vector<Vlr> vlrs;
    std::vector<Vlr> evlrs; ///< 1.4 only
    std::vector<LasRecord> points;

    [[nodiscard]] std::size_t recordLength() const { return LasParts(format).size() + extraByteCount; }
    [[nodiscard]] static std::size_t headerSize(unsigned minor) {
        return minor >= 4 ? 375U : minor == 3 ? 235U : 227U;
    }

    /// One description of extra bytes. Options: 8 for a scale, 16 for an offset.
    [[nodiscard]] static std::string attribute(unsigned type, const std::string& name, unsigned options = 0,
                                               double scale = 1, double shift = 0) {
        std::string entry(192, '\0');
        entry[2] = static_cast<char>(type);
        entry[3] = static_cast<char>(options);
        name.copy(&entry[4], 32);
        patch(entry, 112, scale);
        patch(entry, 136, shift);
        return entry;
    }

    void describe(const std::string& entries) { vlrs.push_back({"LASF_Spec", 4, entries}); }

    /// Points that differ in every part, with values at the edges of their ranges among them.
    void addVariedPoints(std::size_t count) {
        const LasParts parts(format);
        std::uint32_t state = 1;
        const auto next = [&] { return state = state * 1664525U + 1013904223U; };
        for (std::size_t i = 0; i < count; ++i) {
            LasRecord p;
            p.x = static_cast<std::int32_t>(100000 + 13 * i + next() % 50);
            p.y = static_cast<std::int32_t>(200000 + 7 * (i % 31) + next() % 50);
            p.z = static_cast<std::int32_t>(1000 + next() % 500);
            if (i == 3) {
                p.x = std::numeric_limits<std::int32_t>::min();
                p.y = std::numeric_limits<std::int32_t>::max();
                p.z = -1;
            }
            p.intensity = static_cast<std::uint16_t>(i == 4 ? 65535 : next() >> 20);
            p.numberOfReturns = static_cast<std::uint8_t>(1 + (next() >> 16) % (parts.extended ? 15 : 7));
            p.returnNumber = static_cast<std::uint8_t>(1 + (next() >> 16) % p.numberOfReturns);
            p.scanDirection = (next() >> 16) % 2;
            p.edgeOfFlightLine = i % 10 == 9 ? 1 : 0;
            p.classification = static_cast<std::uint8_t>((next() >> 16) % (parts.extended ? 256 : 32));
            p.flags = static_cast<std::uint8_t>((next() >> 16) % (parts.extended ? 16 : 8));
            p.scannerChannel =
                parts.extended ? static_cast<std::uint8_t>((next() >> 16) % 4) : std::uint8_t{0};
            p.userData = static_cast<std::uint8_t>(next() >> 24);
            p.scanAngle = parts.extended
                              ? static_cast<std::int16_t>(static_cast<int>(next() >> 16) % 60001 - 30000)
                              : static_cast<std::int16_t>(static_cast<int>(next() >> 24) - 128);
            p.pointSourceId = static_cast<std::uint16_t>(next() >> 16);
            if (parts.gpsTime)
                p.gpsTime = 4.0e8 + 0.001 * static_cast<double>(i) + (i % 7 == 0 ? 1e7 : 0.0);
            if (parts.rgb)
                p.rgb = {static_cast<std::uint16_t>(next() >> 16), static_cast<std::uint16_t>(next() >> 16),
                         static_cast<std::uint16_t>(next() >> 16)};
            if (parts.nearInfrared)
                p.nearInfrared = static_cast<std::uint16_t>(next() >> 16);
            if (parts.wavePacket) {
                for (char& byte : p.wavePacket)
                    byte = static_cast<char>(next() >> 24);
            }
            for (std::size_t b = 0; b < extraByteCount; ++b)
                p.extraBytes += static_cast<char>(next() >> 24);
            points.push_back(p);
        }
    }

    [[nodiscard]] static std::string encode(const LasRecord& p, unsigned format) {
        const LasParts parts(format);
        std::string bytes;
        append(bytes, p.x);
        append(bytes, p.y);
        append(bytes, p.z);
        append(bytes, p.intensity);
        const auto byte = [&](unsigned value) { bytes += static_cast<char>(value); };
        if (parts.extended) {
            byte(p.returnNumber | unsigned{p.numberOfReturns} << 4);
            byte(p.flags | unsigned{p.scannerChannel} << 4 | unsigned{p.scanDirection} << 6 |
                 unsigned{p.edgeOfFlightLine} << 7);
            byte(p.classification);
            byte(p.userData);
            append(bytes, p.scanAngle);
            append(bytes, p.pointSourceId);
        } else {
            byte(p.returnNumber | unsigned{p.numberOfReturns} << 3 | unsigned{p.scanDirection} << 6 |
                 unsigned{p.edgeOfFlightLine} << 7);
            byte(p.classification | unsigned{p.flags} << 5);
            byte(static_cast<std::uint8_t>(p.scanAngle));
            byte(p.userData);
            append(bytes, p.pointSourceId);
        }
        if (parts.gpsTime)
            append(bytes, p.gpsTime);
        if (parts.rgb) {
            for (const std::uint16_t channel : p.rgb)
                append(bytes, channel);
        }
        if (parts.nearInfrared)
            append(bytes, p.nearInfrared);
        if (parts.wavePacket)
            bytes.append(p.wavePacket.begin(), p.wavePacket.end());
        return bytes + p.extraBytes;
    }

    /// The inverse of encode(). Throws std::out_of_range when there are too few bytes.
    [[nodiscard]] static LasRecord decode(const std::string& bytes, std::size_t place, unsigned format,
                                          std::size_t recordLength) {
        const LasParts parts(format);
        LasRecord p;
        std::size_t at = place;
        const auto take = [&](auto& value) {
            value = number<std::remove_reference_t<decltype(value)>>(bytes, at);
            at += sizeof(value);
        };
        take(p.x);
        take(p.y);
        take(p.z);
        take(p.intensity);
        std::uint8_t returns = 0;
        std::uint8_t flags = 0;
        take(returns);
        take(flags);
        if (parts.extended) {
            p.returnNumber = returns % 16;
            p.numberOfReturns = returns / 16;
            p.flags = flags % 16;
            p.scannerChannel = flags / 16 % 4;
            p.scanDirection = flags / 64 % 2;
            p.edgeOfFlightLine = flags / 128;
            take(p.classification);
            take(p.userData);
            take(p.scanAngle);
        } else {
            p.returnNumber = returns % 8;
            p.numberOfReturns = returns / 8 % 8;
            p.scanDirection = returns / 64 % 2;
            p.edgeOfFlightLine = returns / 128;
            p.classification = flags % 32;
            p.flags = flags / 32;
            std::int8_t angle = 0;
            take(angle);
            p.scanAngle = angle;
            take(p.userData);
        }
        take(p.pointSourceId);
        if (parts.gpsTime)
            take(p.gpsTime);
        if (parts.rgb) {
            for (std::uint16_t& channel : p.rgb)
                take(channel);
        }
        if (parts.nearInfrared)
            take(p.nearInfrared);
        if (parts.wavePacket) {
            for (char& byte : p.wavePacket)
                take(byte);
        }
        p.extraBytes = bytes.substr(at, place + recordLength - at);
        return p;
    }

    /// The bytes of the file.
    [[nodiscard]] std::string build() const {
        const std::size_t size = headerSize(minor);
        std::string bytes(size, '\0');
        bytes.replace(0, 4, "LASF");
        if (minor >= 2)
            patch(bytes, 6, globalEncoding);
        bytes[24] = 1;
        bytes[25] = static_cast<char>(minor);
        patch(bytes, 94, static_cast<std::uint16_t>(size + headerTail.size()));
        patch(bytes, 100, static_cast<std::uint32_t>(vlrs.size()));
        bytes[104] = static_cast<char>(format);
        patch(bytes, 105, static_cast<std::uint16_t>(recordLength()));
        if (format < 6)
            patch(bytes, 107, static_cast<std::uint32_t>(points.size()));
        const std::array<std::int32_t LasRecord::*, 3> axes{&LasRecord::x, &LasRecord::y, &LasRecord::z};
        for (std::size_t axis = 0; axis < 3; ++axis) {
            patch(bytes, 131 + 8 * axis, scale[axis]);
            patch(bytes, 155 + 8 * axis, offset[axis]);
            double low = std::numeric_limits<double>::infinity();
            double high = -low;
            for (const LasRecord& p : points) {
                low = std::min(low, p.*axes[axis] * scale[axis] + offset[axis]);
                high = std::max(high, p.*axes[axis] * scale[axis] + offset[axis]);
            }
            patch(bytes, 179 + 16 * axis, points.empty() ? 0.0 : high);
            patch(bytes, 187 + 16 * axis, points.empty() ? 0.0 : low);
        }
        bytes += headerTail;
        for (const Vlr& vlr : vlrs) {
            bytes += head(vlr);
            append(bytes, static_cast<std::uint16_t>(vlr.payload.size()));
            bytes += std::string(32, '\0') + vlr.payload;
        }
        patch(bytes, 96, static_cast<std::uint32_t>(bytes.size()));
        bytes += startSignature;
        for (const LasRecord& p : points)
            bytes += encode(p, format);
        if (minor >= 4) {
            patch(bytes, 247, std::uint64_t{points.size()});
            if (!evlrs.empty()) {
                patch(bytes, 235, std::uint64_t{bytes.size()});
                patch(bytes, 243, static_cast<std::uint32_t>(evlrs.size()));
            }
            for (const Vlr& vlr : evlrs) {
                bytes += head(vlr);
                append(bytes, std::uint64_t{vlr.payload.size()});
                bytes += std::string(32, '\0') + vlr.payload;
            }
        }
        return bytes;
    }

private:
    [[nodiscard]] static std::string head(const Vlr& vlr) {
        std::string bytes(18, '\0');
        vlr.userId.copy(&bytes[2], 16);
        append(bytes, vlr.recordId);
        return bytes;
    }
};

} // namespace Support
