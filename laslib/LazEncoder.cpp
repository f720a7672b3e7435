// SPDX-License-Identifier: Apache-2.0
#include "LazEncoder.hpp"

#include "LittleEndian.hpp"
#include "formats/las/ArithmeticEncoder.hpp"
#include "formats/las/CorrectedNumbers.hpp"
#include "formats/littleEndian.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
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

/// What LASzip compresses of a point, extra bytes aside: the fields from X to the second return numbers, at the same
/// places as in both points, then the rest.
struct PackedPoint {
    static constexpr std::size_t commonBytes = 25;
    alignas(4) std::array<unsigned char, commonBytes> common;
    F64 gps_time;
    std::array<U16, 4> rgb;
};

/// Copies what is at the same place in all kinds of points. Bit fields are copied by the byte that they share, and
/// nothing wider, because the processor stalls on a wide read of what was just written in parts.
void copyCommon(void* to, const LASpoint& from) {
    auto* const target = static_cast<unsigned char*>(to);
    const auto* const source = reinterpret_cast<const unsigned char*>(&from);
    const auto copy = [&]<std::size_t size>(std::size_t place, std::integral_constant<std::size_t, size>) {
        std::memcpy(target + place, source + place, size);
    };
    constexpr std::integral_constant<std::size_t, 1> byte;
    constexpr std::integral_constant<std::size_t, 2> two;
    constexpr std::integral_constant<std::size_t, 4> four;
    copy(offsetof(LASpoint, X), four);
    copy(offsetof(LASpoint, Y), four);
    copy(offsetof(LASpoint, Z), four);
    copy(offsetof(LASpoint, intensity), two);
    copy(14, byte); // returns and flags
    copy(15, byte); // class and flags
    copy(offsetof(LASpoint, scan_angle_rank), byte);
    copy(offsetof(LASpoint, user_data), byte);
    copy(offsetof(LASpoint, point_source_ID), two);
    copy(offsetof(LASpoint, extended_scan_angle), two);
    copy(22, byte); // type, channel and flags
    copy(offsetof(LASpoint, extended_classification), byte);
    copy(24, byte); // returns
}

PackedPoint packed(const LASpoint& from) {
    PackedPoint to;
    copyCommon(to.common.data(), from);
    to.gps_time = from.gps_time;
    std::copy(std::begin(from.rgb), std::end(from.rgb), to.rgb.begin());
    return to;
}

void copyPoint(const PackedPoint& from, laszip_point_struct& to) {
    std::memcpy(&to, from.common.data(), PackedPoint::commonBytes);
    to.gps_time = from.gps_time;
    std::copy(from.rgb.begin(), from.rgb.end(), std::begin(to.rgb));
}

void copyPoint(const LASpoint& from, laszip_point_struct& to) {
    copyCommon(&to, from);
    to.gps_time = from.gps_time;
    std::copy(std::begin(from.rgb), std::end(from.rgb), std::begin(to.rgb));
}

} // namespace

/// A writer of the library.
struct LazEncoder::Library {
    laszip_POINTER writer = nullptr;
    laszip_point_struct* point = nullptr;
    std::vector<U8> description;
    bool isOpen = false;

    Library(U8 format, U16 recordLength) {
        if (laszip_create(&writer) != 0 || laszip_request_native_extension(writer, 1) != 0 ||
            laszip_set_point_type_and_size(writer, format, recordLength) != 0)
            return;
        U8* bytes = nullptr;
        U32 size = 0;
        if (laszip_create_laszip_vlr(writer, &bytes, &size) == 0)
            description.assign(bytes, bytes + size);
    }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
    ~Library() {
        if (writer == nullptr)
            return;
        // laszip_destroy() alone would leak the memory of a writer that has failed.
        if (isOpen)
            laszip_close_writer(writer);
        laszip_destroy(writer);
    }

    bool begin(std::ostream& stream) {
        // The library allocates the point's extra bytes here, so the point is fetched afterwards.
        isOpen = laszip_open_writer_stream(writer, stream, 1, 1) == 0;
        return isOpen && laszip_get_point_pointer(writer, &point) == 0;
    }

    template <class Point>
    bool write(const Point& from, const U8* extraBytes, std::size_t extraSize) {
        copyPoint(from, *point);
        if (extraSize != 0)
            std::memcpy(point->extra_bytes, extraBytes, extraSize);
        return laszip_write_point(writer) == 0;
    }

    bool end() {
        isOpen = false;
        return laszip_close_writer(writer) == 0;
    }
};

/// Compresses chunks side by side.
///
/// The point data of a LAZ file: the position of the chunk table, the chunks, and the table: version, number of chunks
/// and, arithmetically coded, the bytes of each.
class LazEncoder::Chunks {
public:
    using MakePoints = LASwriter::MakePoints;

    Chunks(U8 format, U16 recordLength, std::ostream& stream, std::size_t atOnce, RunPieces run)
        : format_(format),
          recordLength_(recordLength),
          stream_(stream),
          run_(std::move(run)),
          compressed_(atOnce) {}

    [[nodiscard]] bool add(std::size_t count, const MakePoints& make) {
        for (std::size_t begin = 0; begin < count && healthy_;) {
            // What is open is completed first; what does not fill a chunk stays open.
            const std::size_t open = open_.points.size();
            const std::size_t chunks = std::min((open + count - begin) / chunkPoints, compressed_.size());
            const std::size_t end = chunks != 0 ? begin + chunks * chunkPoints - open : count;
            if (chunks == 0)
                keep(begin, end, make);
            else
                compress(chunks, begin, make);
            begin = end;
        }
        return healthy_;
    }

    [[nodiscard]] bool end() {
        if (!open_.points.empty())
            compress(1, 0, {});
        if (!healthy_)
            return false;
        const auto table = stream_.tellp();
        put(U32{0});
        put(static_cast<U32>(sizes_.size()));
        if (!sizes_.empty()) {
            using Formats::Las::CorrectedNumbers;
            Formats::Las::ArithmeticEncoder encoder;
            CorrectedNumbers numbers;
            U32 before = 0;
            for (const U32 size : sizes_) {
                numbers.write(encoder, before, size, CorrectedNumbers::bytes);
                before = size;
            }
            const std::string coded = encoder.finish();
            stream_.write(coded.data(), static_cast<std::streamsize>(coded.size()));
        }
        stream_.seekp(begin_);
        put(static_cast<U64>(table));
        stream_.seekp(0, std::ios::end);
        return true;
    }

    /// Leaves room for the position of the table.
    void begin() {
        begin_ = stream_.tellp();
        put(~U64{0});
    }

private:
    /// Points that do not fill a chunk yet.
    struct Open {
        std::vector<PackedPoint> points;
        std::vector<U8> extraBytes;
    };

    template <class Number>
    void put(Number number) {
        std::array<char, sizeof(Number)> bytes;
        LittleEndianWriter(bytes.data()).put(number);
        stream_.write(bytes.data(), bytes.size());
    }

    /// Packs points that do not fill a chunk.
    void keep(std::size_t begin, std::size_t end, const MakePoints& make) {
        make(begin, end, [this](const LASpoint& point) {
            open_.points.push_back(packed(point));
            if (point.extra_bytes_number > 0)
                open_.extraBytes.insert(open_.extraBytes.end(), point.extra_bytes,
                                        point.extra_bytes + point.extra_bytes_number);
        });
    }

    /// The bytes of a chunk of the open points, if `withOpen`, and a range: those that a writer of a file of this chunk
    /// alone writes between the position of the table and the table. Empty if LASzip fails.
    [[nodiscard]] std::string chunk(bool withOpen, std::size_t begin, std::size_t end,
                                    const MakePoints& make) const {
        std::ostringstream stream;
        Library library(format_, recordLength_);
        bool isHealthy = !library.description.empty() && library.begin(stream);
        if (withOpen && !open_.points.empty()) {
            const std::size_t extraSize = open_.extraBytes.size() / open_.points.size();
            for (std::size_t i = 0; i < open_.points.size() && isHealthy; ++i)
                isHealthy =
                    library.write(open_.points[i], open_.extraBytes.data() + i * extraSize, extraSize);
        }
        if (begin < end && isHealthy)
            make(begin, end, [&](const LASpoint& point) {
                isHealthy = isHealthy && library.write(point, point.extra_bytes,
                                                       static_cast<std::size_t>(point.extra_bytes_number));
            });
        isHealthy = isHealthy && library.end();
        return isHealthy ? std::move(stream).str() : std::string();
    }

    /// Compresses and writes chunks: the first of the open points, and of what fills it from `begin` on.
    void compress(std::size_t chunks, std::size_t begin, const MakePoints& make) {
        const std::size_t open = open_.points.size();
        run_(chunks, [&](std::size_t i) {
            const std::size_t first = i == 0 ? begin : begin + i * chunkPoints - open;
            const std::size_t end = make ? begin + (i + 1) * chunkPoints - open : first;
            try {
                compressed_[i] = chunk(i == 0, first, end, make);
            } catch (...) {
                compressed_[i].clear();
            }
        });
        open_.points.clear();
        open_.extraBytes.clear();
        for (std::string& bytes : std::span(compressed_).first(chunks)) {
            healthy_ = healthy_ && !bytes.empty();
            if (healthy_) {
                constexpr std::size_t positionSize = sizeof(U64);
                const auto tableBegin = static_cast<std::size_t>(Formats::loadLittleEndian<std::uint64_t>(
                    reinterpret_cast<const std::uint8_t*>(bytes.data())));
                stream_.write(bytes.data() + positionSize,
                              static_cast<std::streamsize>(tableBegin - positionSize));
                sizes_.push_back(static_cast<U32>(tableBegin - positionSize));
            }
            bytes = {};
        }
    }

    U8 format_;
    U16 recordLength_;
    std::ostream& stream_;
    RunPieces run_;
    Open open_;
    std::vector<std::string> compressed_;
    std::vector<U32> sizes_; // of the chunks in the file
    std::ostream::pos_type begin_;
    bool healthy_ = true;
};

LazEncoder::LazEncoder(U8 format, U16 recordLength)
    : format_(format),
      recordLength_(recordLength),
      library_(std::make_unique<Library>(format, recordLength)) {
    Library& library = *library_;
    if (library.description.empty())
        return;
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

void LazEncoder::begin(std::ostream& stream) {
    stream_ = &stream;
}

void LazEncoder::compressSideBySide(std::size_t chunks, RunPieces run) {
    chunks_ = std::make_unique<Chunks>(format_, recordLength_, *stream_, chunks, std::move(run));
}

/// Deferred to the first point, since until then it may be decided how to compress.
bool LazEncoder::start() {
    if (started_)
        return true;
    started_ = true;
    if (!chunks_)
        return library_->begin(*stream_);
    chunks_->begin();
    return true;
}

bool LazEncoder::write(const LASpoint& point) {
    if (!start())
        return false;
    if (chunks_)
        return chunks_->add(1, [&](std::size_t, std::size_t, const auto& put) { put(point); });
    return library_->write(point, point.extra_bytes, static_cast<std::size_t>(point.extra_bytes_number));
}

bool LazEncoder::write(std::size_t count, const LASwriter::MakePoints& make) {
    return start() && chunks_->add(count, make);
}

bool LazEncoder::end() {
    // Without points there is nothing to do side by side, and the library writes what it writes then.
    if (!started_)
        chunks_.reset();
    if (!start())
        return false;
    return chunks_ ? chunks_->end() : library_->end();
}
