// SPDX-License-Identifier: Apache-2.0
#include "readers/las/PointDecoder.hpp"

#include "readers/las/LazPointSource.hpp"
#include "readers/las/PlainPointSource.hpp"

#include <algorithm>
#include <utility>

namespace Tidewatch::Las {

namespace {

// A block's points and records should stay in the processor's cache.
constexpr std::size_t maxBlockPoints = 1024;
constexpr std::size_t minBlockPoints = 16;
constexpr std::size_t blockBytes = std::size_t{128} << 10;

std::unique_ptr<PointSource> openSource(const std::shared_ptr<const LasFile>& file, Layers layers) {
    if (file->compression())
        return std::make_unique<LazPointSource>(file, layers);
    return std::make_unique<PlainPointSource>(file);
}

} // namespace

PointDecoder::PointDecoder(std::shared_ptr<const LasFile> file, Layers layers)
    : file_(std::move(file)),
      layers_(layers),
      blockSize_(std::clamp(blockBytes / file_->header().recordLength, minBlockPoints, maxBlockPoints)) {}

PointDecoder::~PointDecoder() = default;

std::uint64_t PointDecoder::position() const noexcept {
    return source_ ? source_->position() : 0;
}

void PointDecoder::decode(std::uint64_t first, std::uint64_t count, const Sink& sink, const Tick& tick) {
    if (count == 0)
        return;
    goTo(first, tick);
    for (std::uint64_t done = 0; done < count;) {
        const std::span<const Point> block = nextBlock(count - done);
        done += block.size();
        sink(block);
        maybeTick(tick, done);
    }
    // A file modified meanwhile may have given points of two versions.
    source_->requireUnchanged();
}

void PointDecoder::goTo(std::uint64_t point, const Tick& tick) {
    if (!source_)
        source_ = openSource(file_, layers_);
    if (source_->position() == point)
        return;
    try {
        source_->approach(point);
    } catch (...) {
        source_.reset();
        throw;
    }
    while (source_->position() < point) {
        static_cast<void>(nextBlock(point - source_->position()));
        maybeTick(tick, 0);
    }
}

std::span<const Point> PointDecoder::nextBlock(std::uint64_t most) {
    block_.resize(blockSize_);
    const auto block =
        std::span(block_).first(static_cast<std::size_t>(std::min<std::uint64_t>(most, blockSize_)));
    try {
        source_->read(block);
    } catch (...) {
        const std::unique_ptr<PointSource> failed = std::move(source_);
        // A modified file may look damaged.
        failed->requireUnchanged();
        throw;
    }
    return block;
}

void PointDecoder::maybeTick(const Tick& tick, std::uint64_t done) {
    sinceTick_ += blockSize_;
    if (sinceTick_ < tickInterval)
        return;
    sinceTick_ = 0;
    if (tick)
        tick(done);
}

} // namespace Tidewatch::Las
