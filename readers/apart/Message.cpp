// SPDX-License-Identifier: Apache-2.0
#include "readers/apart/Message.hpp"

#include "anchor/Error.hpp"
#include "formats/las/extraBytesEntry.hpp"

#include <algorithm>
#include <bit>
#include <utility>

namespace Tidewatch::Apart {

namespace {

// The min bytes of each of these in a message: the lengths of its texts and lists, and its numbers.
constexpr std::size_t minTextBytes = 4;
constexpr std::size_t minPieceBytes = 1 + minTextBytes + 8 + minTextBytes + 4 + 1;
constexpr std::size_t minFieldBytes = 2 * minTextBytes + 4 + 1;
constexpr std::size_t minRepresentationBytes = minTextBytes + 4;
constexpr std::size_t minSkeletonBytes = minTextBytes + 4 + 4 + 4 + 4;
constexpr std::size_t minFragmentBytes = minTextBytes + 2;
constexpr std::size_t minChartBytes = 2 * minTextBytes;
constexpr std::size_t minRecordBytes = minTextBytes + 4 + minTextBytes + 4;
constexpr std::size_t minGridBytes = minTextBytes + 3 * 4 + 5 + 4;
constexpr std::size_t minSliceBytes = 8 + 4;

template <class Range, class Write>
void writeList(MessageWriter& writer, const Range& range, Write&& write) {
    writer.number32(static_cast<std::uint32_t>(range.size()));
    for (const auto& entry : range)
        write(entry);
}

void writeOverlap(MessageWriter& writer, const std::optional<std::array<std::uint64_t, 3>>& overlap) {
    writer.byte(overlap ? 1 : 0);
    for (std::size_t axis = 0; overlap && axis < 3; ++axis)
        writer.number64((*overlap)[axis]);
}

void writePiece(MessageWriter& writer, const Structure::Piece& piece) {
    writer.byte(piece.fragment ? 1 : 0);
    if (piece.fragment)
        writer.text(*piece.fragment);
    writer.array(piece.array).byte(piece.lattice ? 1 : 0);
    for (std::size_t axis = 0; piece.lattice && axis < 3; ++axis)
        writer.real(piece.lattice->origin[axis]).real(piece.lattice->spacing[axis]);
}

void writeTriple(MessageWriter& writer, const std::optional<std::array<double, 3>>& triple) {
    writer.byte(triple ? 1 : 0);
    for (std::size_t axis = 0; triple && axis < 3; ++axis)
        writer.real((*triple)[axis]);
}

void writeStatement(MessageWriter& writer, const Sheaf::FileStatement& statement) {
    writeTriple(writer, statement.step);
    writeTriple(writer, statement.offset);
    writer.byte(statement.gpsTime ? 1 + static_cast<std::uint8_t>(*statement.gpsTime) : 0);
    writer.byte(statement.fileSourceId ? 1 : 0);
    if (statement.fileSourceId)
        writer.number32(*statement.fileSourceId);
    writer.byte(statement.systemIdentifier ? 1 : 0);
    if (statement.systemIdentifier)
        writer.text(*statement.systemIdentifier);
    writeList(writer, statement.records, [&](const Sheaf::FileRecord& record) {
        writer.text(record.userId).number32(record.recordId).text(record.description);
        writer.text({reinterpret_cast<const char*>(record.bytes.data()), record.bytes.size()});
    });
}

void writeEncoding(MessageWriter& writer, const std::optional<Sheaf::FieldEncoding>& encoding) {
    writer.byte(encoding ? 1 : 0);
    if (!encoding)
        return;
    const auto entry = Formats::Las::encodeExtraBytesEntry(*encoding);
    writer.raw({reinterpret_cast<const char*>(entry.data()), entry.size()});
}

void writeGrid(MessageWriter& writer, const Structure::Grid& grid) {
    writer.text(grid.name);
    writeList(writer, grid.charts,
              [&](const Structure::Chart& chart) { writer.text(chart.name).text(chart.referenceSystem); });
    writeList(writer, grid.fragments, [&](const Structure::Fragment& fragment) {
        writer.text(fragment.name);
        writeOverlap(writer, fragment.overlapLow);
        writeOverlap(writer, fragment.overlapHigh);
    });
    writeList(writer, grid.skeletons, [&](const Structure::Skeleton& skeleton) {
        writer.text(skeleton.object).number32(static_cast<std::uint32_t>(skeleton.dimension));
        writeList(writer, skeleton.refinement,
                  [&](std::int32_t entry) { writer.number32(static_cast<std::uint32_t>(entry)); });
        writer.number32(static_cast<std::uint32_t>(skeleton.exclusionMark));
        writeList(writer, skeleton.representations, [&](const Structure::Representation& representation) {
            writer.text(representation.chart);
            writeList(writer, representation.fields, [&](const Structure::Field& field) {
                writer.text(field.name).text(field.element);
                writeEncoding(writer, field.encoding);
                writeList(writer, field.pieces,
                          [&](const Structure::Piece& piece) { writePiece(writer, piece); });
            });
        });
    });
    writeStatement(writer, grid.statement);
}

} // namespace

MessageWriter& MessageWriter::byte(std::uint8_t value) {
    bytes_.push_back(static_cast<char>(value));
    return *this;
}

MessageWriter& MessageWriter::number32(std::uint32_t value) {
    for (unsigned shift = 0; shift < 32; shift += 8)
        bytes_.push_back(static_cast<char>(value >> shift & 0xff));
    return *this;
}

MessageWriter& MessageWriter::number64(std::uint64_t value) {
    for (unsigned shift = 0; shift < 64; shift += 8)
        bytes_.push_back(static_cast<char>(value >> shift & 0xff));
    return *this;
}

MessageWriter& MessageWriter::real(double value) {
    return number64(std::bit_cast<std::uint64_t>(value));
}

MessageWriter& MessageWriter::text(std::string_view value) {
    number32(static_cast<std::uint32_t>(value.size()));
    bytes_.append(value);
    return *this;
}

MessageWriter& MessageWriter::raw(std::string_view value) {
    bytes_.append(value);
    return *this;
}

MessageWriter& MessageWriter::texts(std::span<const std::string> values) {
    writeList(*this, values, [this](const std::string& value) { text(value); });
    return *this;
}

MessageWriter& MessageWriter::array(const Structure::Array& value) {
    text(value.object).number64(value.key).text(value.element);
    writeList(*this, value.extents, [this](std::uint64_t extent) { number64(extent); });
    return *this;
}

MessageWriter& MessageWriter::structure(const Structure& value) {
    text(value.kind).byte(value.isSingleGrid ? 1 : 0).texts(value.notCarried);
    writeList(*this, value.slices, [this](const Structure::Slice& slice) {
        real(slice.time);
        writeList(*this, slice.grids, [this](const Structure::Grid& grid) { writeGrid(*this, grid); });
    });
    return *this;
}

std::string_view MessageReader::take(std::size_t size) {
    if (size > rest_.size())
        throw Anchor::FormatError("is cut off");
    const std::string_view front = rest_.substr(0, size);
    rest_.remove_prefix(size);
    return front;
}

std::uint8_t MessageReader::byte() {
    return static_cast<std::uint8_t>(take(1).front());
}

std::uint32_t MessageReader::number32() {
    const std::string_view bytes = take(4);
    std::uint32_t value = 0;
    for (std::size_t i = bytes.size(); i-- > 0;)
        value = value << 8 | static_cast<unsigned char>(bytes[i]);
    return value;
}

std::uint64_t MessageReader::number64() {
    const std::string_view bytes = take(8);
    std::uint64_t value = 0;
    for (std::size_t i = bytes.size(); i-- > 0;)
        value = value << 8 | static_cast<unsigned char>(bytes[i]);
    return value;
}

double MessageReader::real() {
    return std::bit_cast<double>(number64());
}

std::string MessageReader::text() {
    return std::string(take(number32()));
}

std::size_t MessageReader::count(std::size_t least) {
    const std::size_t entries = number32();
    if (entries > rest_.size() / least)
        throw Anchor::FormatError("states more entries than it has");
    return entries;
}

std::vector<std::string> MessageReader::texts() {
    std::vector<std::string> values(count(minTextBytes));
    for (std::string& value : values)
        value = text();
    return values;
}

std::vector<std::uint64_t> MessageReader::numbers64() {
    std::vector<std::uint64_t> values(count(8));
    for (std::uint64_t& value : values)
        value = number64();
    return values;
}

Structure::Array MessageReader::array() {
    Structure::Array value;
    value.object = text();
    value.key = number64();
    value.element = text();
    value.extents = numbers64();
    return value;
}

std::optional<std::array<std::uint64_t, 3>> MessageReader::overlap() {
    if (byte() == 0)
        return std::nullopt;
    std::array<std::uint64_t, 3> counts{};
    for (std::uint64_t& entry : counts)
        entry = number64();
    return counts;
}

std::optional<std::array<double, 3>> MessageReader::triple() {
    if (byte() == 0)
        return std::nullopt;
    std::array<double, 3> numbers{};
    for (double& entry : numbers)
        entry = real();
    return numbers;
}

std::uint16_t MessageReader::number16() {
    const std::uint32_t value = number32();
    if (!std::in_range<std::uint16_t>(value))
        throw Anchor::FormatError("has a number that is out of range");
    return static_cast<std::uint16_t>(value);
}

Sheaf::FileStatement MessageReader::statement() {
    Sheaf::FileStatement value;
    value.step = triple();
    value.offset = triple();
    const std::uint8_t gpsTime = byte();
    if (gpsTime > 2)
        throw Anchor::FormatError("has an encoding of GPS times that is not known");
    if (gpsTime != 0)
        value.gpsTime = static_cast<Sheaf::FileStatement::GpsTime>(gpsTime - 1);
    if (byte() != 0)
        value.fileSourceId = number16();
    if (byte() != 0)
        value.systemIdentifier = text();
    value.records.resize(count(minRecordBytes));
    for (Sheaf::FileRecord& record : value.records) {
        record.userId = text();
        record.recordId = number16();
        record.description = text();
        const std::string_view bytes = take(number32());
        record.bytes.assign(bytes.begin(), bytes.end());
    }
    return value;
}

std::optional<Sheaf::FieldEncoding> MessageReader::encoding() {
    if (byte() == 0)
        return std::nullopt;
    const std::string_view bytes = take(Formats::Las::ExtraBytes::entrySize);
    std::array<std::uint8_t, Formats::Las::ExtraBytes::entrySize> entry{};
    std::copy(bytes.begin(), bytes.end(), entry.begin());
    if (!Formats::Las::isScalarEntry(entry))
        throw Anchor::FormatError("has an encoding that does not describe a number");
    return Formats::Las::decodeExtraBytesEntry<Sheaf::FieldEncoding>(entry);
}

Structure::Field MessageReader::field() {
    Structure::Field value;
    value.name = text();
    value.element = text();
    value.encoding = encoding();
    value.pieces.resize(count(minPieceBytes));
    for (Structure::Piece& piece : value.pieces) {
        if (byte() != 0)
            piece.fragment = text();
        piece.array = array();
        if (byte() == 0)
            continue;
        piece.lattice = Structure::Lattice{};
        for (std::size_t axis = 0; axis < 3; ++axis) {
            piece.lattice->origin[axis] = real();
            piece.lattice->spacing[axis] = real();
        }
    }
    return value;
}

Structure::Skeleton MessageReader::skeleton() {
    Structure::Skeleton value;
    value.object = text();
    value.dimension = static_cast<std::int32_t>(number32());
    value.refinement.resize(count(4));
    for (std::int32_t& entry : value.refinement)
        entry = static_cast<std::int32_t>(number32());
    value.exclusionMark = static_cast<std::int32_t>(number32());
    value.representations.resize(count(minRepresentationBytes));
    for (Structure::Representation& representation : value.representations) {
        representation.chart = text();
        representation.fields.resize(count(minFieldBytes));
        for (Structure::Field& entry : representation.fields)
            entry = field();
    }
    return value;
}

Structure::Grid MessageReader::grid() {
    Structure::Grid value;
    value.name = text();
    value.charts.resize(count(minChartBytes));
    for (Structure::Chart& chart : value.charts) {
        chart.name = text();
        chart.referenceSystem = text();
    }
    value.fragments.resize(count(minFragmentBytes));
    for (Structure::Fragment& fragment : value.fragments) {
        fragment.name = text();
        fragment.overlapLow = overlap();
        fragment.overlapHigh = overlap();
    }
    value.skeletons.resize(count(minSkeletonBytes));
    for (Structure::Skeleton& entry : value.skeletons)
        entry = skeleton();
    value.statement = statement();
    return value;
}

Structure MessageReader::structure() {
    Structure value;
    value.kind = text();
    value.isSingleGrid = byte() != 0;
    value.notCarried = texts();
    value.slices.resize(count(minSliceBytes));
    for (Structure::Slice& slice : value.slices) {
        slice.time = real();
        slice.grids.resize(count(minGridBytes));
        for (Structure::Grid& entry : slice.grids)
            entry = grid();
    }
    return value;
}

void MessageReader::finish() const {
    if (!rest_.empty())
        throw Anchor::FormatError("is longer than it says");
}

} // namespace Tidewatch::Apart
