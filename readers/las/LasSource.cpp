// SPDX-License-Identifier: Apache-2.0
#include "readers/las/LasSource.hpp"

#include "anchor/Error.hpp"
#include "anchor/printable.hpp"
#include "formats/las/layout.hpp"
#include "formats/las/records.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/MemArray.hpp"

#include <algorithm>
#include <array>
#include <functional>
#include <list>
#include <optional>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

using Las::Point;

/// Roughly what a creator, its entry in its field and its share of a fragment take.
constexpr std::uint64_t bytesPerListedArray = 400;

constexpr std::size_t maxOpenSources = 64;

/// The limit of all records kept in memory; real ones have some kilobytes.
constexpr std::uint64_t maxRecordBytes = std::uint64_t{64} << 20;

namespace Encoding = Formats::Las::GlobalEncoding;

/// Tracks which sources have their files open, and closes the least recently used ones when there are too
/// many.
class OpenSources {
public:
    /// Returns whether the source could be closed; one that is being read cannot.
    using Close = std::function<bool()>;

    static OpenSources& instance() {
        // Never destroyed: static objects may hold sources until the process ends.
        static auto* const all = new OpenSources;
        return *all;
    }

    void use(const LasSource* source, Close close) {
        const std::lock_guard lock(mutex_);
        order_.remove_if([&](const Entry& entry) { return entry.source == source; });
        order_.push_front({source, std::move(close)});
        for (auto entry = order_.end(); order_.size() > maxOpenSources && entry != order_.begin();) {
            --entry;
            if (entry->source != source && entry->close())
                entry = order_.erase(entry);
        }
    }

    void forget(const LasSource* source) {
        const std::lock_guard lock(mutex_);
        order_.remove_if([&](const Entry& entry) { return entry.source == source; });
    }

private:
    struct Entry {
        const LasSource* source;
        Close close;
    };

    std::mutex mutex_;
    std::list<Entry> order_; // most recently used first
};

std::string decimal(std::uint64_t number, std::size_t width) {
    return fmt::format("{:0{}}", number, width);
}

using RawColour = std::array<std::uint16_t, 3>;

Anchor::StrongPtr<Sheaf::MemBase> makeColours(const std::vector<RawColour>& raw, unsigned shift) {
    std::vector<Sheaf::Element::Color> colours(raw.size());
    std::transform(raw.begin(), raw.end(), colours.begin(), [shift](const RawColour& from) {
        Sheaf::Element::Color colour;
        for (std::size_t channel = 0; channel < from.size(); ++channel)
            colour[channel] = static_cast<unsigned char>(from[channel] >> shift);
        return colour;
    });
    return Sheaf::makeArray(std::move(colours));
}

} // namespace

void LasSource::Findings::take(std::span<const Point> points) noexcept {
    for (const Point& point : points)
        colours = static_cast<std::uint16_t>(colours | point.rgb[0] | point.rgb[1] | point.rgb[2]);
}

LasSource::LasSource(std::string path, ConvLib::ReadOptions options)
    : file_(std::make_shared<const Las::LasFile>(std::move(path))),
      options_(std::move(options)),
      fields_(lasFields(*file_)),
      fragmentPoints_(std::max<std::uint64_t>(options_.FragmentPoints, 1)) {
    const std::uint64_t points = file_->header().pointCount;
    fragmentCount_ = points / fragmentPoints_ + (points % fragmentPoints_ != 0 ? 1 : 0);
    if (fragmentCount_ > options_.MaximumArrayBytes / bytesPerListedArray / fields_.size())
        throw Anchor::LimitError(
            fmt::format("{}: points: {} fragments of {} fields are more than the limit of {} bytes allows",
                        file_->path(), fragmentCount_, fields_.size(), options_.MaximumArrayBytes));
    if (file_->header().layout().rgb != 0)
        seenFragments_.resize(fragmentCount_);
    unseenFragments_ = fragmentCount_;
    readStatement();
    findNotCarried();
}

LasSource::~LasSource() {
    OpenSources::instance().forget(this);
}

std::uint64_t LasSource::pointsOf(std::uint64_t fragment) const noexcept {
    return std::min(fragmentPoints_, file_->header().pointCount - fragment * fragmentPoints_);
}

std::string LasSource::fragmentName(std::uint64_t fragment) const {
    constexpr std::size_t usualWidth = 6;
    return decimal(fragment, std::max(usualWidth, decimal(fragmentCount_ - 1, 1).size()));
}

Las::PointDecoder& LasSource::decoder() {
    OpenSources::instance().use(this, [this] { return tryToClose(); });
    if (!decoder_)
        decoder_ = std::make_unique<Las::PointDecoder>(file_);
    return *decoder_;
}

bool LasSource::tryToClose() {
    const std::unique_lock lock(mutex_, std::try_to_lock);
    if (!lock.owns_lock())
        return false;
    decoder_.reset();
    return true;
}

void LasSource::remember(const Findings& findings) {
    constexpr std::uint16_t largestOfByte = 0xFF;
    if (findings.colours > largestOfByte)
        colourDepth_ = ColourDepth::Bits16;
}

void LasSource::rememberSeen(std::uint64_t fragment) {
    if (colourDepth_ != ColourDepth::Unknown || seenFragments_.empty() || seenFragments_[fragment])
        return;
    seenFragments_[fragment] = true;
    if (--unseenFragments_ == 0)
        colourDepth_ = ColourDepth::Bits8;
}

void LasSource::lookForWideColours(std::uint64_t fragment) {
    const std::uint64_t first = fragment * fragmentPoints_;
    const std::uint64_t count = pointsOf(fragment);
    constexpr std::uint64_t step = Las::PointDecoder::tickInterval;
    for (std::uint64_t done = 0; done < count && colourDepth_ == ColourDepth::Unknown; done += step) {
        Findings findings;
        decoder().decode(first + done, std::min(step, count - done),
                         [&](std::span<const Point> points) { findings.take(points); });
        remember(findings);
        if (options_.Tick)
            options_.Tick(file_->path(), 1.0);
    }
    rememberSeen(fragment);
}

void LasSource::findColourDepth(std::uint64_t lastFragment) {
    // Starts where the decoder is, since some files can only be read forward.
    for (std::uint64_t i = 1; i <= fragmentCount_ && colourDepth_ == ColourDepth::Unknown; ++i) {
        const std::uint64_t fragment = (lastFragment + i) % fragmentCount_;
        if (!seenFragments_[fragment])
            lookForWideColours(fragment);
    }
}

std::vector<Anchor::StrongPtr<Sheaf::MemBase>> LasSource::decode(std::uint64_t fragment,
                                                                 std::span<const std::size_t> wanted) {
    const std::lock_guard lock(mutex_);
    const std::uint64_t points = pointsOf(fragment);
    std::vector<std::unique_ptr<LasColumn>> columns(wanted.size());
    std::optional<std::size_t> colourPlace;
    std::vector<RawColour> colours;
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        const LasField& field = fields_[wanted[i]];
        if (field.isColours())
            colourPlace = i;
        else
            columns[i] = field.makeColumn(points);
    }
    if (colourPlace)
        colours.reserve(points);

    Findings findings;
    const auto sink = [&](std::span<const Point> block) {
        findings.take(block);
        for (const auto& column : columns) {
            if (column)
                column->take(block);
        }
        if (colourPlace) {
            for (const Point& point : block)
                colours.push_back(point.rgb);
        }
    };
    const auto tick = [&](std::uint64_t done) {
        if (options_.Tick)
            options_.Tick(file_->path(), static_cast<double>(done) / static_cast<double>(points));
    };
    decoder().decode(fragment * fragmentPoints_, points, sink, tick);
    remember(findings);
    rememberSeen(fragment);

    std::vector<Anchor::StrongPtr<Sheaf::MemBase>> arrays(wanted.size());
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        if (columns[i])
            arrays[i] = columns[i]->finish();
    }
    if (colourPlace) {
        if (colourPlace == 0U)
            findColourDepth(fragment);
        constexpr unsigned byteBits = 8;
        if (colourDepth_ != ColourDepth::Unknown)
            arrays[*colourPlace] = makeColours(colours, colourDepth_ == ColourDepth::Bits16 ? byteBits : 0);
    }
    return arrays;
}

void LasSource::readStatement() {
    const Las::LasHeader& header = file_->header();
    // The writer does not support negative steps.
    if (std::all_of(header.scale.begin(), header.scale.end(), [](double scale) { return scale > 0; })) {
        statement_.step = header.scale;
        statement_.offset = header.offset;
    }
    using Sheaf::FileStatement;
    if (header.layout().gpsTime != 0)
        statement_.gpsTime = (header.globalEncoding & Encoding::adjustedGpsTime) != 0
                                 ? FileStatement::GpsTime::Adjusted
                                 : FileStatement::GpsTime::Week;
    statement_.fileSourceId = header.fileSourceId;
    statement_.systemIdentifier = header.systemIdentifier;
    const InputFile input = file_->open();
    std::uint64_t room = maxRecordBytes;
    for (const Las::LasFile::UserRecord& record : file_->userRecords()) {
        if (record.length > room) {
            notCarried_.push_back(fmt::format("record {}/{} of {} bytes", Anchor::printable(record.userId),
                                              record.recordId, record.length));
            continue;
        }
        room -= record.length;
        Sheaf::FileRecord kept{record.userId, record.recordId, record.description, {}};
        kept.bytes.resize(record.length);
        input.read(record.offset, kept.bytes, record.userId);
        statement_.records.push_back(std::move(kept));
    }
}

std::string LasSource::referenceSystem() const {
    const auto find = [&](std::uint16_t id) {
        return std::find_if(statement_.records.begin(), statement_.records.end(), [&](const auto& record) {
            return record.userId == Formats::Las::projectionUser && record.recordId == id;
        });
    };
    const auto text = find(Formats::Las::wellKnownTextId);
    // If a file has both, the header bit says which applies.
    const bool keysCount = (file_->header().globalEncoding & Encoding::wellKnownText) == 0 &&
                           find(Formats::Las::geoKeyDirectoryId) != statement_.records.end();
    if (text == statement_.records.end() || keysCount)
        return {};
    return {text->bytes.begin(), std::find(text->bytes.begin(), text->bytes.end(), std::uint8_t{0})};
}

void LasSource::findNotCarried() {
    const Las::LasHeader& header = file_->header();
    if (file_->moreUserRecords() != 0)
        notCarried_.push_back(fmt::format("{} records after the first {}", file_->moreUserRecords(),
                                          Las::LasFile::mostUserRecords));
    if ((header.globalEncoding & Encoding::syntheticReturnNumbers) != 0)
        notCarried_.emplace_back("mark of synthetic return numbers");
    if (header.layout().wavePacket != 0)
        notCarried_.emplace_back("waveforms");
    std::uint32_t described = 0;
    for (const Las::ExtraAttribute& attribute : file_->extraAttributes()) {
        described += attribute.size;
        if (!attribute.isScalar())
            notCarried_.push_back(
                fmt::format("extra bytes \"{}\" (not a number)", Anchor::printable(attribute.name)));
    }
    if (header.extraByteCount() > described)
        notCarried_.push_back(fmt::format("{} undescribed extra bytes", header.extraByteCount() - described));
}

} // namespace Tidewatch
