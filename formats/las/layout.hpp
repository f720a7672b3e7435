// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

/// Byte offsets and constants of LAS and LAZ files: everything that readers, the writer and the verification must agree
/// on. Offsets are in bytes from the start of the block that they are named after. Sources: LAS 1.4 R15; for compressed
/// files the LASzip library and "LASzip: lossless compression of LiDAR data" (Isenburg 2013).
namespace Formats::Las {

/// "Public Header Block". Each version adds fields at the end of the header of the version before, so one list serves
/// all versions.
namespace Header {
constexpr std::size_t fileSourceId = 4;
constexpr std::size_t globalEncoding = 6;
constexpr std::size_t versionMajor = 24;
constexpr std::size_t versionMinor = 25;
constexpr std::size_t systemIdentifier = 26;   ///< of textSize bytes
constexpr std::size_t generatingSoftware = 58; ///< likewise
constexpr std::size_t creationDay = 90;        ///< of the year, from 1
constexpr std::size_t creationYear = 92;
constexpr std::size_t headerSize = 94;
constexpr std::size_t pointOffset = 96;
constexpr std::size_t vlrCount = 100;
constexpr std::size_t pointFormat = 104;
constexpr std::size_t recordLength = 105;
constexpr std::size_t legacyPointCount = 107;
constexpr std::size_t legacyCountsByReturn = 111; ///< five
constexpr std::size_t scale = 131;                ///< x, y, z, and then the offsets
constexpr std::size_t offset = 155;
constexpr std::size_t bounds = 179;     ///< max x, min x, max y, ...
constexpr std::size_t waveform = 227;   ///< from 1.3 on
constexpr std::size_t evlrOffset = 235; ///< from 1.4 on, like all that follows
constexpr std::size_t evlrCount = 243;
constexpr std::size_t pointCount = 247;
constexpr std::size_t countsByReturn = 255; ///< fifteen
} // namespace Header

/// "Global Encoding".
namespace GlobalEncoding {
constexpr std::uint16_t adjustedGpsTime = 1;
constexpr std::uint16_t waveformsInside = 2;
constexpr std::uint16_t waveformsOutside = 4;
constexpr std::uint16_t syntheticReturnNumbers = 8;
constexpr std::uint16_t wellKnownText = 16;
} // namespace GlobalEncoding

/// The size of texts in headers and records, padded with zeros.
constexpr std::size_t textSize = 32;

constexpr std::size_t legacyReturns = 5;
constexpr std::size_t returns = 15;

constexpr std::uint16_t smallestHeader = 227;
constexpr std::uint16_t largestHeader = 375;

/// The size of the header of a version 1.N.
constexpr std::uint16_t headerSizeOf(unsigned versionMinor) noexcept {
    return versionMinor >= 4 ? largestHeader : versionMinor == 3 ? std::uint16_t{235} : smallestHeader;
}

/// The bit of the point format that marks compressed points; set by LASzip, not part of LAS.
constexpr std::uint8_t compressedFlag = 0x80;

/// "Variable Length Records" and "Extended Variable Length Records", which start alike: two reserved bytes, user id,
/// record id, the length of the payload in two or in eight bytes, and a description.
namespace Record {
constexpr std::size_t userId = 2;
constexpr std::size_t userIdSize = 16;
constexpr std::size_t recordId = 18;
constexpr std::size_t length = 20;
constexpr std::size_t description = 22;
constexpr std::size_t extendedDescription = 28;
constexpr std::size_t headSize = 54;
constexpr std::size_t extendedHeadSize = 60;
/// The max payload of a record that is not extended.
constexpr std::size_t largestPayload = 65535;
} // namespace Record

/// Records by their ids.
constexpr std::uint16_t geoKeyDirectoryId = 34735;
constexpr std::uint16_t geoDoublesId = 34736;
constexpr std::uint16_t geoTextsId = 34737;
constexpr std::uint16_t mathTransformId = 2111; ///< as well-known text
constexpr std::uint16_t wellKnownTextId = 2112;
constexpr std::uint16_t extraBytesId = 4;
constexpr std::uint16_t laszipId = 22204;

/// "Extra Bytes": an entry of record LASF_Spec / 4.
namespace ExtraBytes {
constexpr std::size_t type = 2;
constexpr std::size_t options = 3;
constexpr std::size_t name = 4;
constexpr std::size_t noData = 40; ///< eight bytes, as the widest number of the type's kind
constexpr std::size_t scale = 112;
constexpr std::size_t offset = 136;
constexpr std::size_t description = 160;
constexpr std::size_t entrySize = 192;
constexpr std::uint8_t optionNoData = 1;
constexpr std::uint8_t optionScale = 8;
constexpr std::uint8_t optionOffset = 16;
} // namespace ExtraBytes

/// The payload of the record that describes the compression ("laszip encoded" / 22204).
namespace Compression {
constexpr std::size_t compressor = 0;
constexpr std::size_t coder = 2;
constexpr std::size_t versionMajor = 4; ///< of LASzip
constexpr std::size_t versionMinor = 5;
constexpr std::size_t revision = 6;
constexpr std::size_t chunkSize = 12;
constexpr std::size_t specialRecordCount = 16; ///< -1 if there are none
constexpr std::size_t specialRecordOffset = 24;
constexpr std::size_t itemCount = 32;
constexpr std::size_t fixedSize = 34; ///< the items follow
constexpr std::size_t itemSize = 6;
} // namespace Compression

/// The chunk table. Its offset is in the eight bytes before the first chunk. It consists of the version 0 and the
/// number of chunks in 32 bits each, then the encoded sizes of the chunks.
namespace ChunkTable {
constexpr std::size_t version = 0;
constexpr std::size_t chunkCount = 4;
constexpr std::size_t headSize = 8;
} // namespace ChunkTable

} // namespace Formats::Las
