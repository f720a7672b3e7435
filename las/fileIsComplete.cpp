// SPDX-License-Identifier: Apache-2.0
#include "las/fileIsComplete.hpp"

#include "formats/las/layout.hpp"
#include "formats/littleEndian.hpp"

#include <array>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace ExportLib {

namespace {

namespace Layout = Formats::Las;

/// The little-endian number at an offset of a file. If the file is too short, the stream fails, and from then
/// on every number is 0.
template <class T>
T numberAt(std::istream& file, std::uint64_t place) {
    std::array<std::uint8_t, sizeof(T)> bytes{};
    file.seekg(static_cast<std::streamoff>(place));
    file.read(reinterpret_cast<char*>(bytes.data()), bytes.size());
    return Formats::loadLittleEndian<T>(bytes.data());
}

/// Points per chunk, from the record that describes the compression: the last of the variable length records.
std::uint32_t chunkSize(std::istream& file) {
    std::uint64_t place = numberAt<std::uint16_t>(file, Layout::Header::headerSize);
    for (auto records = numberAt<std::uint32_t>(file, Layout::Header::vlrCount); file && records > 1;
         --records)
        place += Layout::Record::headSize + numberAt<std::uint16_t>(file, place + Layout::Record::length);
    return numberAt<std::uint32_t>(file, place + Layout::Record::headSize + Layout::Compression::chunkSize);
}

/// Where extended records begin, or the file ends.
std::uint64_t endOfPoints(std::istream& file, std::uint64_t size) {
    if (numberAt<std::uint8_t>(file, Layout::Header::versionMinor) < 4 ||
        numberAt<std::uint32_t>(file, Layout::Header::evlrCount) == 0)
        return size;
    return numberAt<std::uint64_t>(file, Layout::Header::evlrOffset);
}

/// The encoded sizes of the chunks end with two or three zero bytes, and have at least the four bytes that a
/// decoder reads first.
bool endsInChunkTable(std::istream& file, std::uint64_t size, std::uint64_t points) {
    constexpr std::uint64_t headSize = Layout::ChunkTable::headSize;
    constexpr std::uint64_t minCodedSize = 4;
    const std::uint64_t begin = numberAt<std::uint32_t>(file, Layout::Header::pointOffset);
    const auto table = numberAt<std::uint64_t>(file, begin);
    const std::uint64_t ownChunkSize = chunkSize(file);
    // Until the table is written, its stated position is invalid.
    if (!file || ownChunkSize == 0 || table < begin + sizeof table || table > size || size - table < headSize)
        return false;
    const std::uint64_t chunks = points / ownChunkSize + (points % ownChunkSize != 0 ? 1 : 0);
    if (numberAt<std::uint32_t>(file, table + Layout::ChunkTable::version) != 0 ||
        numberAt<std::uint32_t>(file, table + Layout::ChunkTable::chunkCount) != chunks)
        return false;
    if (chunks != 0 &&
        (size - table < headSize + minCodedSize || numberAt<std::uint16_t>(file, size - 2) != 0))
        return false;
    return !file.fail();
}

} // namespace

bool fileIsComplete(const std::string& path, std::uint64_t bytes, const LASheader& header,
                    std::uint64_t points) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (!std::filesystem::exists(status))
        return false;
    if (!std::filesystem::is_regular_file(status))
        return true;
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    if (error || size < bytes)
        return false;
    std::ifstream file(path, std::ios::binary);
    const auto format = numberAt<std::uint8_t>(file, Layout::Header::pointFormat);
    if (!file || (format & ~Layout::compressedFlag) != header.point_data_format)
        return false;
    const std::uint64_t end = endOfPoints(file, size);
    if ((format & Layout::compressedFlag) != 0)
        return end <= size && endsInChunkTable(file, end, points);
    return end <= size && end >= header.offset_to_point_data + points * header.point_data_record_length;
}

} // namespace ExportLib
