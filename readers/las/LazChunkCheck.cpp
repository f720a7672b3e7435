// SPDX-License-Identifier: Apache-2.0
#include "readers/las/LazChunkCheck.hpp"

#include "formats/littleEndian.hpp"
#include "readers/las/ArithmeticDecoder.hpp"
#include "readers/las/FormatFailure.hpp"

#include <array>
#include <vector>

namespace Tidewatch::Las {

namespace {

constexpr std::uint64_t wordSize = 4;

class ChunkHead {
public:
    ChunkHead(const InputFile& file, std::size_t index) : file_(&file), index_(index) {}

    [[nodiscard]] std::string object() const { return fmt::format("chunk {}", index_); }

    void checkStream(std::uint64_t offset, const char* name) const {
        std::array<std::uint8_t, wordSize> start{};
        file_->read(offset, start, object());
        // All bits set: the order of the bytes does not matter.
        if (Formats::loadLittleEndian<std::uint32_t>(start.data()) == ArithmeticDecoder::impossibleStart)
            failFormat(file_->path(), object(), "{} at {} begins with an impossible code", name, offset);
    }

    void checkLayers(const LazChunkTable::Chunk& chunk, std::uint64_t headOffset,
                     std::size_t layerCount) const {
        std::vector<std::uint8_t> head(wordSize * (1 + layerCount));
        file_->read(headOffset, head, object());
        const auto points = Formats::loadLittleEndian<std::uint32_t>(head.data());
        if (points != chunk.pointCount)
            failFormat(file_->path(), object(), "it states {} points, the chunk table {}", points,
                       chunk.pointCount);
        std::uint64_t place = headOffset + head.size();
        for (std::size_t layer = 0; layer < layerCount; ++layer) {
            const auto size = Formats::loadLittleEndian<std::uint32_t>(head.data() + wordSize * (1 + layer));
            if (size > chunk.endOffset() - place)
                failFormat(file_->path(), object(), "layer {} is to have {} bytes, but {} are left", layer,
                           size, chunk.endOffset() - place);
            // The first layer is always read; any other may be empty, for an attribute that does not change.
            if (size < wordSize && (size != 0 || layer == 0))
                failFormat(file_->path(), object(), "layer {} is to have {} bytes, at least {} are needed",
                           layer, size, wordSize);
            if (size != 0)
                checkStream(place, "a layer");
            place += size;
        }
        if (place != chunk.endOffset())
            failFormat(file_->path(), object(), "its layers end at {}, but the chunk ends at {}", place,
                       chunk.endOffset());
    }

private:
    const InputFile* file_;
    std::size_t index_;
};

} // namespace

void checkLazChunk(const InputFile& file, const LasHeader& header, const LasFile::Compression& compression,
                   std::size_t chunkIndex) {
    const LazChunkTable::Chunk chunk = compression.chunks[chunkIndex];
    const ChunkHead head(file, chunkIndex);
    // The check of the chunk table ensures that each chunk has room for its first point and what follows.
    const std::uint64_t behindFirstPoint = chunk.offset + header.recordLength;
    if (compression.description.isLayered())
        head.checkLayers(chunk, behindFirstPoint, compression.description.layerCount());
    else
        head.checkStream(behindFirstPoint, "the stream");
}

} // namespace Tidewatch::Las
