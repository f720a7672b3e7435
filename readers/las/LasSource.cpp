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
#include <atomic>
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

// Few enough for processes that may have 64 files open, the usual lower limit.
constexpr std::size_t maxOpenSources = 16;

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

/// Raw colours are three numbers a point.
constexpr std::size_t channelCount = 3;
using RawColours = std::vector<unsigned short>;

/// The channels of a block's points, combined by "or": above 255 if one of them is.
std::uint16_t channelsOf(std::span<const Point> points) noexcept {
    std::uint16_t channels = 0;
    for (const Point& point : points)
        channels = static_cast<std::uint16_t>(channels | point.rgb[0] | point.rgb[1] | point.rgb[2]);
    return channels;
}

bool isWide(std::uint16_t channels) noexcept {
    constexpr std::uint16_t largestOfByte = 0xFF;
    return channels > largestOfByte;
}

Anchor::StrongPtr<Sheaf::MemBase> makeColours(const RawColours& raw, unsigned shift,
                                              Anchor::Workers* workers) {
    std::vector<Sheaf::Element::Color> colours(raw.size() / channelCount);
    constexpr std::size_t block = 65536;
    Anchor::runPieces(workers, (colours.size() + block - 1) / block, [&](std::size_t piece) {
        const std::size_t begin = piece * block;
        const std::size_t end = std::min(colours.size(), begin + block);
        for (std::size_t i = begin; i < end; ++i) {
            for (std::size_t channel = 0; channel < channelCount; ++channel)
                colours[i][channel] = static_cast<unsigned char>(raw[i * channelCount + channel] >> shift);
        }
    });
    return Sheaf::makeArray(std::move(colours));
}

} // namespace

/// The fields that are collected of a fragment while it is decoded.
class LasSource::Pass {
public:
    Pass(const LasSource& source, std::uint64_t fragment, std::span<const std::size_t> wanted)
        : fragment_(fragment),
          points_(source.pointsOf(fragment)),
          fields_(wanted.begin(), wanted.end()),
          layers_(source.layersOf(wanted)),
          columns_(wanted.size()),
          workers_(source.options_.Workers.get()) {
        for (std::size_t i = 0; i < fields_.size(); ++i) {
            const LasField& field = source.fields_[fields_[i]];
            if (field.isColours())
                colours_ = i;
            else
                columns_[i] = field.makeColumn(points_);
        }
        // The system hands memory out when it is first written to, which takes as long as copying it.
        Anchor::runPieces(workers_, columns_.size(), [this](std::size_t i) {
            if (columns_[i])
                columns_[i]->begin();
            else
                raw_.resize(points_ * channelCount);
        });
    }

    [[nodiscard]] std::uint64_t fragment() const noexcept { return fragment_; }
    [[nodiscard]] std::uint64_t points() const noexcept { return points_; }
    [[nodiscard]] Las::Layers layers() const noexcept { return layers_; }

    /// Takes a block of points, the first of which is number `first` of the fragment.
    void take(std::uint64_t first, std::span<const Point> block) {
        for (const auto& column : columns_) {
            if (column)
                column->take(first, block);
        }
        if (!colours_)
            return;
        auto target = raw_.begin() + static_cast<std::ptrdiff_t>(first * channelCount);
        for (const Point& point : block)
            target = std::copy(point.rgb.begin(), point.rgb.end(), target);
    }

    /// The arrays; colours are left raw unless the depth is known.
    [[nodiscard]] Decoded finish(ColourDepth depth) {
        Decoded decoded{fragment_, fields_, {}, {}};
        for (const auto& column : columns_)
            decoded.arrays.emplace_back(column ? column->finish() : nullptr);
        if (colours_ && depth == ColourDepth::Unknown)
            decoded.rawColours = Sheaf::makeArray(std::exchange(raw_, {}));
        else if (colours_)
            decoded.arrays[*colours_] = makeColours(raw_, shiftOf(depth), workers_);
        raw_ = {};
        return decoded;
    }

    [[nodiscard]] static unsigned shiftOf(ColourDepth depth) noexcept {
        constexpr unsigned byteBits = 8;
        return depth == ColourDepth::Bits16 ? byteBits : 0;
    }

private:
    std::uint64_t fragment_;
    std::uint64_t points_;
    std::vector<std::size_t> fields_;
    Las::Layers layers_;
    std::vector<std::unique_ptr<LasColumn>> columns_;
    std::optional<std::size_t> colours_; // the place of the field of colours
    RawColours raw_;
    Anchor::Workers* workers_;
};

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

Las::DecoderPool& LasSource::decoders() {
    OpenSources::instance().use(this, [this] { return tryToClose(); });
    if (!decoders_)
        decoders_ = std::make_unique<Las::DecoderPool>(file_);
    return *decoders_;
}

bool LasSource::tryToClose() {
    const std::unique_lock lock(mutex_, std::try_to_lock);
    if (!lock.owns_lock())
        return false;
    decoders_.reset();
    return true;
}

/// Records what the colours of a fragment tell; whatever fields it was decoded for.
void LasSource::remember(std::uint64_t fragment, bool wide) {
    if (wide)
        colourDepth_ = ColourDepth::Bits16;
    if (colourDepth_ != ColourDepth::Unknown || seenFragments_.empty() || seenFragments_[fragment])
        return;
    seenFragments_[fragment] = true;
    if (--unseenFragments_ == 0)
        colourDepth_ = ColourDepth::Bits8;
}

void LasSource::run(Pass& pass) {
    const std::uint64_t begin = pass.fragment() * fragmentPoints_;
    std::atomic<std::uint16_t> channels = 0;
    const auto sink = [&](std::uint64_t first, std::span<const Point> block) {
        pass.take(first - begin, block);
        channels |= channelsOf(block);
    };
    const auto tick = [&](std::uint64_t done) {
        if (options_.Tick)
            options_.Tick(file_->path(), static_cast<double>(done) / static_cast<double>(pass.points()));
    };
    decoders().decode(begin, pass.points(), pass.layers(), options_.Workers.get(), sink, tick);
    if ((pass.layers() & Las::Layer::Rgb) != 0)
        remember(pass.fragment(), isWide(channels));
}

/// What has to be decoded for some fields.
Las::Layers LasSource::layersOf(std::span<const std::size_t> fields) const {
    Las::Layers layers = 0;
    for (const std::size_t field : fields)
        layers |= fields_[field].layers;
    return decodable(layers);
}

/// These layers, or all of a file whose points are decoded as a whole.
Las::Layers LasSource::decodable(Las::Layers layers) const {
    return file_->compression() && file_->compression()->description.isLayered() ? layers : Las::allLayers;
}

/// Looks for wide colours in a fragment of which nothing is kept, as far as the first one.
void LasSource::search(std::uint64_t fragment) {
    const std::uint64_t first = fragment * fragmentPoints_;
    const std::uint64_t count = pointsOf(fragment);
    // With workers, enough for each of them.
    const std::uint64_t step =
        Las::PointDecoder::tickInterval * (8 * Anchor::workerCount(options_.Workers.get()) - 7);
    std::atomic<std::uint16_t> channels = 0;
    for (std::uint64_t done = 0; done < count && !isWide(channels); done += step) {
        decoders().decode(
            first + done, std::min(step, count - done), decodable(Las::Layer::Rgb), options_.Workers.get(),
            [&](std::uint64_t, std::span<const Point> points) { channels |= channelsOf(points); });
        if (options_.Tick)
            options_.Tick(file_->path(), 1.0);
    }
    remember(fragment, isWide(channels));
}

/// Returns what is kept of the fragments that had to be decoded for it.
std::vector<LasSource::Pass> LasSource::findColourDepth(std::uint64_t lastFragment, const Keep& keep) {
    std::vector<Pass> kept;
    // Starts where the decoder is, since some files can only be read forward.
    for (std::uint64_t i = 1; i <= fragmentCount_ && colourDepth_ == ColourDepth::Unknown; ++i) {
        const std::uint64_t fragment = (lastFragment + i) % fragmentCount_;
        if (seenFragments_[fragment])
            continue;
        const auto fields = keep ? keep(fragment) : std::vector<std::size_t>();
        if (fields.empty())
            search(fragment);
        else
            run(kept.emplace_back(*this, fragment, fields));
    }
    return kept;
}

bool LasSource::looksAhead(std::size_t field) const {
    const std::lock_guard lock(mutex_);
    return fields_[field].isColours() && colourDepth_ == ColourDepth::Unknown && unseenFragments_ > 1;
}

std::vector<LasSource::Decoded> LasSource::decode(std::uint64_t fragment, std::span<const std::size_t> wanted,
                                                  const Keep& keep) {
    const std::lock_guard lock(mutex_);
    Pass pass(*this, fragment, wanted);
    run(pass);
    std::vector<Pass> kept;
    if (fields_[wanted.front()].isColours())
        kept = findColourDepth(fragment, keep);
    std::vector<Decoded> all{pass.finish(colourDepth_)};
    for (Pass& other : kept)
        all.push_back(other.finish(colourDepth_));
    return all;
}

std::vector<LasSource::Decoded> LasSource::narrow(std::uint64_t fragment, std::size_t field,
                                                  const Anchor::StrongPtr<Sheaf::MemBase>& rawColours,
                                                  const Keep& keep) {
    const std::lock_guard lock(mutex_);
    std::vector<Pass> kept = findColourDepth(fragment, keep);
    const auto raw = Anchor::dynamicCast<Sheaf::TypedArray<unsigned short>>(rawColours);
    std::vector<Decoded> all{{fragment, {field}, {}, {}}};
    all.front().arrays.push_back(
        makeColours(raw->base_vector(), Pass::shiftOf(colourDepth_), options_.Workers.get()));
    for (Pass& other : kept)
        all.push_back(other.finish(colourDepth_));
    return all;
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
