// SPDX-License-Identifier: Apache-2.0
#include "readers/las/LazChunkTable.hpp"

#include "formats/las/CorrectedNumbers.hpp"
#include "formats/las/layout.hpp"
#include "formats/littleEndian.hpp"
#include "readers/las/ArithmeticDecoder.hpp"
#include "readers/las/FormatFailure.hpp"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <string_view>

namespace Tidewatch::Las {

namespace {

constexpr std::string_view object = "chunk table";
constexpr std::uint64_t positionSize = 8;
constexpr std::uint64_t tableHeadSize = Formats::Las::ChunkTable::headSize;
constexpr std::uint64_t maxStreamPoints = 0xFFFFFFFE; // LASzip uses one more to mark "no chunks"

/// Reads bytes of the file one after the other, buffered.
class ByteSource {
public:
    ByteSource(const InputFile& file, std::uint64_t offset) : file_(&file), offset_(offset) {}

    std::optional<std::uint8_t> next() {
        if (used_ == filled_) {
            filled_ = file_->readUpTo(offset_, buffer_);
            offset_ += filled_;
            used_ = 0;
            if (filled_ == 0)
                return std::nullopt;
        }
        return buffer_[used_++];
    }

private:
    const InputFile* file_;
    std::uint64_t offset_;
    std::array<std::uint8_t, 4096> buffer_{};
    std::size_t filled_ = 0;
    std::size_t used_ = 0;
};

std::uint64_t readPosition(const InputFile& file, std::uint64_t offset) {
    std::array<std::uint8_t, positionSize> bytes{};
    file.read(offset, bytes, object);
    return Formats::loadLittleEndian<std::uint64_t>(bytes.data());
}

/// The offset of the table; its head is checked to be inside the file.
std::uint64_t locate(const InputFile& file, std::uint64_t chunksBegin) {
    std::uint64_t position = readPosition(file, chunksBegin - positionSize);
    if (position == std::numeric_limits<std::uint64_t>::max())
        position = readPosition(file, file.size() - positionSize);
    if (position == 0 || position == chunksBegin - positionSize)
        failFormat(file.path(), object, "it is missing; the program that wrote the file was interrupted");
    if (position > file.size() || file.size() - position < tableHeadSize)
        failFormat(file.path(), object,
                   "the file is cut off: it should begin at byte {}, and the file has {}", position,
                   file.size());
    if (position < chunksBegin)
        failFormat(file.path(), object, "it begins at {}, before the first chunk at {}", position,
                   chunksBegin);
    return position;
}

std::uint64_t smallestChunk(const LasHeader& header, const LazDescription& description) noexcept {
    // The first point uncompressed, for layered chunks the point count and the layers' sizes, and at least
    // one stream, whose first four bytes are always read.
    const std::uint64_t layerSizes =
        description.isLayered() ? 4 + 4 * std::uint64_t{description.layerCount()} : 0;
    return header.recordLength + layerSizes + 4;
}

void checkPlausible(const LazChunkTable::Chunk& chunk, std::size_t index, const std::string& path) {
    if (chunk.pointCount / LazChunkTable::mostPointsPerByte > chunk.byteCount)
        failFormat(path, object, "chunk {} is to have {} points in {} bytes, which is impossible", index,
                   chunk.pointCount, chunk.byteCount);
}

} // namespace

LazChunkTable::Chunk LazChunkTable::operator[](std::size_t index) const noexcept {
    const Start& begin = starts_[index];
    const Start& end = starts_[index + 1];
    return {begin.firstPoint, end.firstPoint - begin.firstPoint, begin.offset, end.offset - begin.offset};
}

std::size_t LazChunkTable::find(std::uint64_t point) const noexcept {
    const auto behind =
        std::upper_bound(starts_.begin(), starts_.end(), point,
                         [](std::uint64_t p, const Start& start) { return p < start.firstPoint; });
    return static_cast<std::size_t>(behind - starts_.begin()) - 1;
}

LazChunkTable LazChunkTable::read(const InputFile& file, const LasHeader& header,
                                  const LazDescription& description) {
    const std::string& path = file.path();
    const std::uint64_t smallest = smallestChunk(header, description);
    LazChunkTable table;

    if (!description.hasChunks()) {
        table.starts_.push_back({0, header.pointOffset});
        if (header.pointCount != 0) {
            const std::uint64_t end = header.evlrCount != 0 ? header.evlrOffset : file.size();
            if (end - header.pointOffset < smallest)
                failFormat(path, "points", "{} compressed points are stated, but there are only {} bytes",
                           header.pointCount, end - header.pointOffset);
            table.starts_.push_back({header.pointCount, end});
            checkPlausible(table[0], 0, path);
            if (header.pointCount > maxStreamPoints)
                failFormat(path, "points", "{} points in one compressed stream are more than LASzip reads",
                           header.pointCount);
        }
        return table;
    }

    const std::uint64_t chunksBegin = header.pointOffset + positionSize;
    table.starts_.push_back({0, chunksBegin});
    // Some writers end a file without points here.
    if (header.pointCount == 0 && file.size() == header.pointOffset) {
        table.starts_.back().offset = header.pointOffset;
        return table;
    }
    const std::uint64_t tableOffset = locate(file, chunksBegin);
    std::array<std::uint8_t, tableHeadSize> head{};
    file.read(tableOffset, head, object);
    const auto version = Formats::loadLittleEndian<std::uint32_t>(head.data());
    if (version != 0)
        failFormat(path, object, "its version {} is not known", version);
    const auto count = Formats::loadLittleEndian<std::uint32_t>(head.data() + 4);
    const std::uint64_t chunkBytes = tableOffset - chunksBegin;
    if (count > chunkBytes / smallest)
        failFormat(path, object, "it states {} chunks, but there are only {} bytes of chunks", count,
                   chunkBytes);
    if (!description.hasVariableChunks()) {
        const std::uint64_t needed = header.pointCount / description.chunkSize +
                                     (header.pointCount % description.chunkSize != 0 ? 1 : 0);
        if (count != needed)
            failFormat(path, object, "it states {} chunks, but {} points in chunks of {} make {}", count,
                       header.pointCount, description.chunkSize, needed);
    }

    table.starts_.reserve(std::size_t{count} + 1);
    try {
        if (count != 0) {
            ByteSource source(file, tableOffset + tableHeadSize);
            ArithmeticDecoder decoder([&source] { return source.next(); });
            using Formats::Las::CorrectedNumbers;
            CorrectedNumbers numbers;
            std::uint32_t points = 0;
            std::uint32_t bytes = 0;
            for (std::uint32_t index = 0; index < count; ++index) {
                const Start begin = table.starts_.back();
                const std::uint64_t pointsLeft = header.pointCount - begin.firstPoint;
                if (description.hasVariableChunks())
                    points = numbers.read(decoder, points, CorrectedNumbers::points);
                else
                    points = static_cast<std::uint32_t>(
                        std::min<std::uint64_t>(pointsLeft, description.chunkSize));
                bytes = numbers.read(decoder, bytes, CorrectedNumbers::bytes);
                if (points == 0 || points > pointsLeft)
                    failFormat(path, object, "chunk {} is to have {} of the {} points that are left", index,
                               points, pointsLeft);
                if (bytes < smallest || bytes > mostChunkBytes || bytes > tableOffset - begin.offset)
                    failFormat(path, object, "chunk {} is to have {} of the {} bytes that are left", index,
                               bytes, tableOffset - begin.offset);
                table.starts_.push_back({begin.firstPoint + points, begin.offset + bytes});
                checkPlausible(table[index], index, path);
            }
        }
    } catch (const ArithmeticDecoder::Damage& damage) {
        failFormat(path, object, "chunk {} of {} cannot be read: {}", table.size(), count, damage.what);
    }
    if (table.starts_.back().firstPoint != header.pointCount)
        failFormat(path, object, "its chunks have {} points, but the header states {}",
                   table.starts_.back().firstPoint, header.pointCount);
    if (table.starts_.back().offset != tableOffset)
        failFormat(path, object, "its chunks end at {}, but it begins at {}", table.starts_.back().offset,
                   tableOffset);
    return table;
}

} // namespace Tidewatch::Las
