// SPDX-License-Identifier: Apache-2.0
#include "readers/las/LazPointSource.hpp"

#include "formats/las/layout.hpp"
#include "formats/littleEndian.hpp"
#include "readers/las/FormatFailure.hpp"
#include "readers/las/LazChunkCheck.hpp"
#include "readers/las/LazStream.hpp"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>
#include <utility>

// This header has a using directive for namespace std; no other file includes it.
#include <laszip/laszip_api.h>

namespace Tidewatch::Las {

namespace {

namespace Layout = Formats::Las;

constexpr std::size_t headerSize = Layout::largestHeader;
constexpr std::size_t chunkTablePlaceSize = 8;

/// The head that LASzip reads instead of the file's own: a LAS 1.4 header with what LASzip needs, the
/// compression record, and the position of the chunk table.
std::vector<std::uint8_t> makeHead(const LasHeader& header, const LasFile::Compression& compression,
                                   std::uint64_t chunksBegin) {
    const LazDescription& description = compression.description;
    const std::size_t payloadSize =
        LazDescription::fixedSize + LazDescription::itemSize * description.items.size();
    const std::size_t pointOffset = headerSize + Layout::Record::headSize + payloadSize;
    std::vector<std::uint8_t> head(pointOffset + (description.hasChunks() ? chunkTablePlaceSize : 0));
    std::uint8_t* bytes = head.data();

    std::memcpy(bytes, "LASF", 4);
    bytes[Layout::Header::versionMajor] = 1;
    bytes[Layout::Header::versionMinor] = 4;
    Formats::storeLittleEndian(bytes + Layout::Header::headerSize, static_cast<std::uint16_t>(headerSize));
    Formats::storeLittleEndian(bytes + Layout::Header::pointOffset, static_cast<std::uint32_t>(pointOffset));
    Formats::storeLittleEndian(bytes + Layout::Header::vlrCount, std::uint32_t{1});
    bytes[Layout::Header::pointFormat] =
        static_cast<std::uint8_t>(header.pointFormat | Layout::compressedFlag);
    Formats::storeLittleEndian(bytes + Layout::Header::recordLength, header.recordLength);
    for (std::size_t axis = 0; axis < 3; ++axis)
        Formats::storeLittleEndian(bytes + Layout::Header::scale + 8 * axis, 1.0);
    Formats::storeLittleEndian(bytes + Layout::Header::pointCount, header.pointCount);

    std::uint8_t* record = bytes + headerSize;
    constexpr std::string_view userId = "laszip encoded";
    std::memcpy(record + Layout::Record::userId, userId.data(), userId.size());
    Formats::storeLittleEndian(record + Layout::Record::recordId, Layout::laszipId);
    Formats::storeLittleEndian(record + Layout::Record::length, static_cast<std::uint16_t>(payloadSize));

    std::uint8_t* payload = record + Layout::Record::headSize;
    Formats::storeLittleEndian(payload, static_cast<std::uint16_t>(description.compressor));
    payload[Layout::Compression::versionMajor] = 3; // the version of LASzip whose records these are
    payload[Layout::Compression::versionMinor] = 4;
    Formats::storeLittleEndian(payload + Layout::Compression::revision, std::uint16_t{3});
    Formats::storeLittleEndian(payload + Layout::Compression::chunkSize, description.chunkSize);
    Formats::storeLittleEndian(payload + Layout::Compression::specialRecordCount, std::int64_t{-1});
    Formats::storeLittleEndian(payload + Layout::Compression::specialRecordOffset, std::int64_t{-1});
    Formats::storeLittleEndian(payload + Layout::Compression::itemCount,
                               static_cast<std::uint16_t>(description.items.size()));
    for (std::size_t i = 0; i < description.items.size(); ++i) {
        std::uint8_t* item = payload + LazDescription::fixedSize + LazDescription::itemSize * i;
        Formats::storeLittleEndian(item, static_cast<std::uint16_t>(description.items[i].type));
        Formats::storeLittleEndian(item + 2, description.items[i].size);
        Formats::storeLittleEndian(item + 4, description.items[i].version);
    }
    if (description.hasChunks()) {
        // Relative to the stream that LASzip sees, where the chunks follow this head directly.
        const std::uint64_t chunkBytes = compression.chunks.tableOffset() - chunksBegin;
        Formats::storeLittleEndian(bytes + pointOffset, head.size() + chunkBytes);
    }
    return head;
}

void copyPoint(const laszip_point& from, const Formats::Las::PointLayout& layout, bool extended,
               Point& point) noexcept {
    point.x = from.X;
    point.y = from.Y;
    point.z = from.Z;
    point.intensity = from.intensity;
    point.pointSourceId = from.point_source_ID;
    point.userData = from.user_data;
    point.scanDirection = from.scan_direction_flag;
    point.edgeOfFlightLine = from.edge_of_flight_line;
    if (extended) {
        point.returnNumber = from.extended_return_number;
        point.numberOfReturns = from.extended_number_of_returns;
        point.classification = from.extended_classification;
        point.flags = from.extended_classification_flags;
        point.scannerChannel = from.extended_scanner_channel;
        point.scanAngle = from.extended_scan_angle;
    } else {
        point.returnNumber = from.return_number;
        point.numberOfReturns = from.number_of_returns;
        point.classification = from.classification;
        point.flags = static_cast<std::uint8_t>(from.synthetic_flag * Point::Synthetic +
                                                from.keypoint_flag * Point::KeyPoint +
                                                from.withheld_flag * Point::Withheld);
        point.scanAngle = from.scan_angle_rank;
    }
    if (layout.gpsTime != 0)
        point.gpsTime = from.gps_time;
    if (layout.rgb != 0)
        point.rgb = {from.rgb[0], from.rgb[1], from.rgb[2]};
    if (layout.nearInfrared != 0)
        point.nearInfrared = from.rgb[3];
}

} // namespace

/// Owns LASzip's handle and the stream that it reads.
class LazPointSource::Decompressor {
public:
    Decompressor(const InputFile& file, const LasHeader& header, const LasFile::Compression& compression,
                 Layers layers)
        : path_(file.path()),
          hasChunks_(compression.description.hasChunks()),
          stream_(file, makeHead(header, compression, chunksBegin(header, compression)),
                  chunksBegin(header, compression)) {
        if (laszip_create(&handle_) != 0)
            failFormat(path_, "points", "the LASzip library cannot be set up");
        try {
            open(header.extraByteCount(), layers);
        } catch (...) {
            close();
            throw;
        }
    }
    Decompressor(const Decompressor&) = delete;
    Decompressor& operator=(const Decompressor&) = delete;
    ~Decompressor() { close(); }

    [[nodiscard]] LazStream& stream() noexcept { return stream_; }
    [[nodiscard]] const LazStream& stream() const noexcept { return stream_; }
    [[nodiscard]] const laszip_point& point() const noexcept { return *point_; }

    /// Decompresses the next point into point().
    void next(std::uint64_t number) {
        if (laszip_read_point(handle_) != 0)
            fail(fmt::format("point {}", number), "cannot be decompressed");
    }

    void seek(std::uint64_t number) {
        stream_.markStack();
        if (laszip_seek_point(handle_, static_cast<laszip_I64>(number)) != 0)
            fail(fmt::format("point {}", number), "cannot be found");
        stream_.rethrowFailure();
    }

private:
    [[nodiscard]] static std::uint64_t chunksBegin(const LasHeader& header,
                                                   const LasFile::Compression& compression) noexcept {
        return header.pointOffset + (compression.description.hasChunks() ? chunkTablePlaceSize : 0);
    }

    void open(std::uint16_t extraByteCount, Layers layers) {
        static_assert(Layer::Z == laszip_DECOMPRESS_SELECTIVE_Z &&
                      Layer::Rgb == laszip_DECOMPRESS_SELECTIVE_RGB &&
                      Layer::FirstExtraByte == laszip_DECOMPRESS_SELECTIVE_BYTE0);
        if (laszip_decompress_selective(handle_, layers) != 0)
            fail("points", "cannot be decompressed in part");
        laszip_BOOL isCompressed = 0;
        if (laszip_open_reader_stream(handle_, stream_.stream(), &isCompressed) != 0)
            fail("points", "cannot be decompressed");
        if (laszip_get_point_pointer(handle_, &point_) != 0 || isCompressed == 0 ||
            (extraByteCount != 0 && point_->num_extra_bytes != extraByteCount))
            fail("points", "cannot be decompressed as they are described");
        // Makes LASzip read the chunk table now, before reading is restricted to single chunks.
        if (hasChunks_)
            seek(0);
    }

    [[noreturn]] void fail(const std::string& object, std::string_view what) {
        stream_.rethrowFailure();
        if (stream_.stackExceeded())
            failFormat(path_, object, "{}: its GPS time switches sequences without end", what);
        laszip_CHAR* text = nullptr;
        laszip_get_error(handle_, &text);
        failFormat(path_, object, "{}: LASzip says: {}{}", what, text != nullptr ? text : "nothing",
                   stream_.stream().eof() ? " (the compressed data ends too early)" : "");
    }

    void close() noexcept {
        // laszip_destroy() alone would leak the reader's memory.
        laszip_close_reader(handle_);
        laszip_destroy(handle_);
    }

    std::string path_;
    bool hasChunks_;
    LazStream stream_;
    laszip_POINTER handle_ = nullptr;
    laszip_point* point_ = nullptr;
};

LazPointSource::LazPointSource(std::shared_ptr<const LasFile> file, Layers layers)
    : PointSource(std::move(file)),
      layers_(layers) {
    restart();
}

LazPointSource::~LazPointSource() = default;

void LazPointSource::restart() {
    decompressor_.reset();
    decompressor_ = std::make_unique<Decompressor>(input_, file_->header(), *file_->compression(), layers_);
    position_ = 0;
    nextChunk_ = 0;
    chunkEnd_ = 0;
}

void LazPointSource::approach(std::uint64_t point) {
    const auto& [description, chunks] = *file_->compression();
    if (!description.hasChunks() || file_->header().pointCount > std::numeric_limits<std::uint32_t>::max()) {
        if (point < position_)
            restart();
        return;
    }
    const std::size_t index = chunks.find(point);
    const LazChunkTable::Chunk chunk = chunks[index];
    if (position_ >= chunk.firstPoint && position_ <= point)
        return;
    decompressor_->stream().setEnd(chunks.tableOffset());
    decompressor_->seek(chunk.firstPoint);
    position_ = chunk.firstPoint;
    chunkEnd_ = chunk.firstPoint;
    nextChunk_ = index;
}

void LazPointSource::enterChunk() {
    const LasFile::Compression& compression = *file_->compression();
    checkLazChunk(input_, file_->header(), compression, nextChunk_);
    const LazChunkTable::Chunk chunk = compression.chunks[nextChunk_];
    decompressor_->stream().setEnd(chunk.endOffset());
    chunkEnd_ = chunk.firstPoint + chunk.pointCount;
    ++nextChunk_;
}

void LazPointSource::leaveChunk() const {
    const auto& [description, chunks] = *file_->compression();
    if (!description.hasChunks())
        return;
    const std::size_t index = nextChunk_ - 1;
    const std::uint64_t here = decompressor_->stream().filePosition();
    if (here != chunks[index].endOffset())
        failFormat(file_->path(), fmt::format("chunk {}", index),
                   "it is damaged: its points end at {}, the chunk ends at {}", here,
                   chunks[index].endOffset());
}

void LazPointSource::read(std::span<Point> points) {
    const LasHeader& header = file_->header();
    const Formats::Las::PointLayout& layout = header.layout();
    const bool extended = Formats::Las::isExtendedFormat(header.pointFormat);
    const std::size_t extraByteCount = header.extraByteCount();
    extraBytes_.resize(points.size() * extraByteCount);
    std::uint8_t* extraBytes = extraBytes_.data();

    std::size_t done = 0;
    while (done < points.size()) {
        if (position_ == chunkEnd_)
            enterChunk();
        decompressor_->stream().markStack();
        const std::uint64_t left = std::min<std::uint64_t>(points.size() - done, chunkEnd_ - position_);
        for (Point& point : points.subspan(done, static_cast<std::size_t>(left))) {
            decompressor_->next(position_);
            copyPoint(decompressor_->point(), layout, extended, point);
            if (extraByteCount != 0) {
                std::memcpy(extraBytes, decompressor_->point().extra_bytes, extraByteCount);
                point.extraBytes = extraBytes;
                extraBytes += extraByteCount;
            }
            ++position_;
        }
        done += static_cast<std::size_t>(left);
        if (position_ == chunkEnd_)
            leaveChunk();
    }
}

} // namespace Tidewatch::Las
