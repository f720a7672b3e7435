// SPDX-License-Identifier: Apache-2.0
#include "readers/las/LasHeader.hpp"

#include "formats/las/layout.hpp"
#include "formats/littleEndian.hpp"
#include "readers/las/FormatFailure.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <span>

namespace Tidewatch::Las {

namespace {

namespace Place = Formats::Las::Header;
using Formats::Las::headerSizeOf;
using Formats::Las::largestHeader;
using Formats::Las::smallestHeader;

constexpr std::string_view object = "header";
constexpr std::array<char, 3> axisNames{'x', 'y', 'z'};

class HeaderBytes {
public:
    explicit HeaderBytes(const InputFile& file) {
        if (file.size() < smallestHeader)
            failFormat(file.path(), object, "the file has {} bytes, a LAS header at least {}", file.size(),
                       smallestHeader);
        available_ = file.readUpTo(0, bytes_);
    }

    /// Bytes beyond the end of the file read as 0; the check of the header's size detects that.
    template <class T>
    [[nodiscard]] T get(std::size_t place) const noexcept {
        return Formats::loadLittleEndian<T>(bytes_.data() + place);
    }

    [[nodiscard]] std::string text(std::size_t place) const {
        const auto field = std::span(bytes_).subspan(place, Formats::Las::textSize);
        return {field.begin(), std::find(field.begin(), field.end(), std::uint8_t{0})};
    }

    [[nodiscard]] bool hasSignature() const noexcept { return std::memcmp(bytes_.data(), "LASF", 4) == 0; }
    [[nodiscard]] std::size_t available() const noexcept { return available_; }

private:
    std::array<std::uint8_t, largestHeader> bytes_{};
    std::size_t available_ = 0;
};

std::uint64_t statedPointCount(const HeaderBytes& bytes, const LasHeader& header, const std::string& path) {
    const std::uint64_t legacy = bytes.get<std::uint32_t>(Place::legacyPointCount);
    if (header.versionMinor < 4)
        return legacy;
    // The legacy count is 0 where it cannot hold the number and for formats that older readers do not know;
    // otherwise it equals the count. There are files in which only the legacy field is filled in.
    const auto count = bytes.get<std::uint64_t>(Place::pointCount);
    if (count == 0)
        return legacy;
    if (legacy != 0 && legacy != count)
        failFormat(path, object, "the number of points is stated as {} and, in the legacy field, as {}",
                   count, legacy);
    return count;
}

void readCounts(const HeaderBytes& bytes, LasHeader& header) {
    header.legacyPointCount = bytes.get<std::uint32_t>(Place::legacyPointCount);
    if (header.versionMinor < 4) {
        for (std::size_t i = 0; i < Formats::Las::legacyReturns; ++i)
            header.countsByReturn.push_back(bytes.get<std::uint32_t>(Place::legacyCountsByReturn + 4 * i));
        return;
    }
    header.longPointCount = bytes.get<std::uint64_t>(Place::pointCount);
    for (std::size_t i = 0; i < Formats::Las::returns; ++i)
        header.countsByReturn.push_back(bytes.get<std::uint64_t>(Place::countsByReturn + 8 * i));
}

void checkCoordinates(const LasHeader& header, const std::string& path) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
        if (!std::isfinite(header.scale[axis]) || header.scale[axis] == 0.0)
            failFormat(path, object, "the {} scale factor is {}", axisNames[axis], header.scale[axis]);
        if (!std::isfinite(header.offset[axis]))
            failFormat(path, object, "the {} offset is {}", axisNames[axis], header.offset[axis]);
        constexpr double largestStored = 2147483648;
        if (!std::isfinite(std::abs(header.scale[axis]) * largestStored + std::abs(header.offset[axis])))
            failFormat(path, object,
                       "the {} scale factor of {} and the offset of {} exceed the range of numbers",
                       axisNames[axis], header.scale[axis], header.offset[axis]);
    }
}

/// LAS 1.0 puts a signature of two bytes before the points, and some writers store the offset of the
/// signature instead of the first point.
void skipStartSignature(LasHeader& header, const InputFile& file) {
    constexpr std::uint64_t signatureSize = 2;
    const std::uint64_t available = file.size() - header.pointOffset;
    if (header.versionMinor != 0 || header.compressed || header.pointCount == 0 ||
        available < signatureSize || (available - signatureSize) / header.recordLength < header.pointCount)
        return;
    std::array<std::uint8_t, signatureSize> bytes{};
    file.read(header.pointOffset, bytes, object);
    const bool isSignature = (bytes[0] == 0xDD && bytes[1] == 0xCC) || (bytes[0] == 0xCC && bytes[1] == 0xDD);
    // The two bytes may also be the beginning of a coordinate: they count as the signature only if the file
    // is longer than the points by exactly two bytes.
    if (isSignature && available - signatureSize == header.pointCount * header.recordLength)
        header.pointOffset += signatureSize;
}

void checkPointData(const LasHeader& header, const InputFile& file) {
    if (header.compressed)
        return;
    const std::uint64_t end = header.evlrCount != 0 ? header.evlrOffset : file.size();
    const std::uint64_t fitting = (end - header.pointOffset) / header.recordLength;
    if (header.pointCount > fitting)
        failFormat(file.path(), "points", "{} points of {} bytes are stated, but the file has room for {}",
                   header.pointCount, header.recordLength, fitting);
}

} // namespace

LasHeader LasHeader::read(const InputFile& file) {
    const std::string& path = file.path();
    const HeaderBytes bytes(file);
    if (!bytes.hasSignature())
        failFormat(path, object, "this is not a LAS file (the signature is missing)");

    LasHeader header;
    const unsigned major = bytes.get<std::uint8_t>(Place::versionMajor);
    header.versionMinor = bytes.get<std::uint8_t>(Place::versionMinor);
    if (major != 1 || header.versionMinor > 4)
        failFormat(path, object, "LAS {}.{} is not known; 1.0 to 1.4 are", major, header.versionMinor);
    if (header.versionMinor >= 1)
        header.fileSourceId = bytes.get<std::uint16_t>(Place::fileSourceId);
    header.systemIdentifier = bytes.text(Place::systemIdentifier);
    header.generatingSoftware = bytes.text(Place::generatingSoftware);
    header.creationDay = bytes.get<std::uint16_t>(Place::creationDay);
    header.creationYear = bytes.get<std::uint16_t>(Place::creationYear);
    if (header.versionMinor >= 2)
        header.globalEncoding = bytes.get<std::uint16_t>(Place::globalEncoding);

    header.headerSize = bytes.get<std::uint16_t>(Place::headerSize);
    const std::uint16_t needed = headerSizeOf(header.versionMinor);
    if (header.headerSize < needed || bytes.available() < needed)
        failFormat(path, object, "a LAS 1.{} header has {} bytes; stated are {}, and the file has {}",
                   header.versionMinor, needed, header.headerSize, file.size());
    header.pointOffset = bytes.get<std::uint32_t>(Place::pointOffset);
    if (header.pointOffset < header.headerSize || header.pointOffset > file.size())
        failFormat(path, object, "the point data begins at {}, outside the {} bytes behind the header of {}",
                   header.pointOffset, file.size(), header.headerSize);
    header.vlrCount = bytes.get<std::uint32_t>(Place::vlrCount);

    const unsigned format = bytes.get<std::uint8_t>(Place::pointFormat);
    if ((format & 0x40U) != 0)
        failFormat(path, object, "the points are compressed in an experimental way that is not known");
    header.compressed = (format & Formats::Las::compressedFlag) != 0;
    header.pointFormat = format & 0x3FU;
    if (header.pointFormat >= Formats::Las::pointLayouts.size())
        failFormat(path, object, "point format {} is not known; 0 to {} are", header.pointFormat,
                   Formats::Las::pointLayouts.size() - 1);
    header.recordLength = bytes.get<std::uint16_t>(Place::recordLength);
    if (header.recordLength < header.layout().naturalSize)
        failFormat(path, object, "a point of format {} has at least {} bytes; stated are {}",
                   header.pointFormat, header.layout().naturalSize, header.recordLength);

    for (std::size_t axis = 0; axis < 3; ++axis) {
        header.scale[axis] = bytes.get<double>(Place::scale + 8 * axis);
        header.offset[axis] = bytes.get<double>(Place::offset + 8 * axis);
        header.maximum[axis] = bytes.get<double>(Place::bounds + 16 * axis);
        header.minimum[axis] = bytes.get<double>(Place::bounds + 16 * axis + 8);
    }
    checkCoordinates(header, path);

    header.pointCount = statedPointCount(bytes, header, path);
    readCounts(bytes, header);
    if (header.versionMinor >= 4) {
        header.evlrCount = bytes.get<std::uint32_t>(Place::evlrCount);
        header.evlrOffset = header.evlrCount != 0 ? bytes.get<std::uint64_t>(Place::evlrOffset) : 0;
        if (header.evlrCount != 0 &&
            (header.evlrOffset < header.pointOffset || header.evlrOffset > file.size()))
            failFormat(path, object,
                       "the extended variable length records begin at {}, outside the {} bytes from "
                       "the point data at {} on",
                       header.evlrOffset, file.size(), header.pointOffset);
    }
    skipStartSignature(header, file);
    checkPointData(header, file);
    return header;
}

} // namespace Tidewatch::Las
