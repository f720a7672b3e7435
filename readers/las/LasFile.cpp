// SPDX-License-Identifier: Apache-2.0
#include "readers/las/LasFile.hpp"

#include "formats/las/layout.hpp"
#include "formats/las/records.hpp"
#include "formats/littleEndian.hpp"
#include "readers/las/FormatFailure.hpp"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>
#include <utility>

namespace Tidewatch::Las {

namespace {

std::string text(std::span<const std::uint8_t> field) {
    return {field.begin(), std::find(field.begin(), field.end(), std::uint8_t{0})};
}

/// Reads the heads of records through a buffer, since many may be close together.
class RecordHeads {
public:
    explicit RecordHeads(const InputFile& file) : file_(&file) {}

    std::span<const std::uint8_t> at(std::uint64_t offset, std::uint64_t size, std::string_view object) {
        if (offset < begin_ || offset + size > begin_ + filled_) {
            begin_ = offset;
            filled_ = file_->readUpTo(offset, buffer_);
            if (filled_ < size)
                file_->read(offset, std::span(buffer_).first(size), object);
        }
        return std::span(buffer_).subspan(offset - begin_, size);
    }

private:
    const InputFile* file_;
    std::uint64_t begin_ = 0;
    std::uint64_t filled_ = 0;
    std::array<std::uint8_t, 4096> buffer_{};
};

} // namespace

struct LasFile::RecordKind {
    std::string_view name;
    bool isExtended;
    std::uint64_t headSize;
    std::uint64_t begin;
    std::uint64_t end;
    std::uint32_t count;
};

struct LasFile::Record {
    std::string userId;
    std::uint16_t recordId;
    std::string description;
    std::uint64_t offset; // of the payload
    std::uint64_t length; // checked to end inside the file
};

LasFile::LasFile(std::string path) : path_(std::move(path)) {
    const InputFile file(path_);
    state_ = file.state();
    header_ = LasHeader::read(file);
    readRecords(file, {"variable length record", false, Formats::Las::Record::headSize, header_.headerSize,
                       header_.pointOffset, header_.vlrCount});
    readRecords(file, {"extended variable length record", true, Formats::Las::Record::extendedHeadSize,
                       header_.evlrOffset, file.size(), header_.evlrCount});
    if (header_.compressed) {
        if (!description_)
            failFormat(path_, "compression record", "the points are compressed, but no record describes how");
        auto chunks = LazChunkTable::read(file, header_, *description_);
        compression_ = Compression{std::move(*description_), std::move(chunks)};
    }
    description_.reset();
}

InputFile LasFile::open() const {
    InputFile file(path_);
    file.requireUnchanged(state_);
    return file;
}

void LasFile::readRecords(const InputFile& file, const RecordKind& kind) {
    RecordHeads heads(file);
    std::uint64_t place = kind.begin;
    for (std::uint32_t index = 0; index < kind.count; ++index) {
        const auto object = [&] { return fmt::format("{} {}", kind.name, index); };
        if (kind.end - place < kind.headSize)
            failFormat(path_, object(), "it begins at {} and runs over the end of its part of the file at {}",
                       place, kind.end);
        const auto head = heads.at(place, kind.headSize, kind.name);
        place += kind.headSize;
        const auto userId = head.subspan(Formats::Las::Record::userId, Formats::Las::Record::userIdSize);
        const auto description = head.subspan(kind.isExtended ? Formats::Las::Record::extendedDescription
                                                              : Formats::Las::Record::description,
                                              Formats::Las::textSize);
        const std::uint8_t* length = head.data() + Formats::Las::Record::length;
        const Record record{
            text(userId),
            Formats::loadLittleEndian<std::uint16_t>(head.data() + Formats::Las::Record::recordId),
            text(description), place,
            kind.isExtended ? Formats::loadLittleEndian<std::uint64_t>(length)
                            : Formats::loadLittleEndian<std::uint16_t>(length)};
        if (kind.end - place < record.length)
            failFormat(path_, object(),
                       "its {} bytes from {} on run over the end of its part of the file at {}",
                       record.length, place, kind.end);
        place += record.length;
        take(record, file);
    }
}

void LasFile::take(const Record& record, const InputFile& file) {
    const auto payload = [&] {
        std::vector<std::uint8_t> bytes(record.length);
        file.read(record.offset, bytes, record.userId);
        return bytes;
    };
    const bool isBound = Formats::Las::isBoundToItsFile(record.userId, record.recordId);
    auto& records = isBound ? boundRecords_ : userRecords_;
    if (records.size() < mostUserRecords)
        records.push_back({record.userId, record.recordId, record.description, record.offset, record.length});
    else if (!isBound)
        ++moreUserRecords_;
    if (!isBound)
        return;
    if (record.userId == Formats::Las::specificationUser && record.recordId == Formats::Las::extraBytesId) {
        // More entries than one record holds continue in the next.
        ExtraAttribute::parse(payload(), header_.extraByteCount(), path_, extraAttributes_);
    } else if (record.userId == Formats::Las::laszipUser && record.recordId == Formats::Las::laszipId &&
               header_.compressed) {
        if (description_)
            failFormat(path_, "compression record", "there are two of them");
        description_ = LazDescription::parse(payload(), header_.pointFormat, header_.recordLength, path_);
    }
}

} // namespace Tidewatch::Las
