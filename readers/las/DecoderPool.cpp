// SPDX-License-Identifier: Apache-2.0
#include "readers/las/DecoderPool.hpp"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <limits>
#include <thread>
#include <utility>

namespace Tidewatch::Las {

namespace {

// Pieces of some milliseconds: enough of them to keep all workers busy, and few enough that seeking costs nothing.
// Chunks have 50 000 points in most files.
constexpr std::uint64_t minPiece = 25'000;
constexpr std::uint64_t plainPiece = 65'536;

} // namespace

DecoderPool::DecoderPool(std::shared_ptr<const LasFile> file) : file_(std::move(file)) {}

/// Where the pieces of a range begin, and its end.
std::vector<std::uint64_t> DecoderPool::split(std::uint64_t first, std::uint64_t count) const {
    const std::uint64_t end = first + count;
    std::vector<std::uint64_t> places{first};
    if (!file_->compression()) {
        for (std::uint64_t place = first; end - place > plainPiece;)
            places.push_back(place += plainPiece);
    } else if (const auto& [description, chunks] = *file_->compression();
               description.hasChunks() &&
               file_->header().pointCount <= std::numeric_limits<std::uint32_t>::max()) {
        for (std::size_t i = chunks.find(first) + 1; i < chunks.size() && chunks[i].firstPoint < end; ++i) {
            if (chunks[i].firstPoint - places.back() >= minPiece)
                places.push_back(chunks[i].firstPoint);
        }
    }
    places.push_back(end);
    return places;
}

/// A decoder for points from `point` on, preferably one that is there already.
DecoderPool::Decoder DecoderPool::borrow(std::uint64_t point, Layers layers) {
    {
        const std::lock_guard lock(mutex_);
        if (!free_.empty()) {
            const auto there = std::find_if(free_.begin(), free_.end(), [&](const Decoder& decoder) {
                return decoder->position() == point;
            });
            std::swap(there != free_.end() ? *there : free_.back(), free_.back());
            Decoder decoder = std::move(free_.back());
            free_.pop_back();
            return decoder;
        }
    }
    return std::make_unique<PointDecoder>(file_, layers);
}

void DecoderPool::giveBack(Decoder decoder) {
    const std::lock_guard lock(mutex_);
    free_.push_back(std::move(decoder));
}

void DecoderPool::decode(std::uint64_t first, std::uint64_t count, Layers layers, Anchor::Workers* workers,
                         const Sink& sink, const PointDecoder::Tick& tick) {
    if (count == 0)
        return;
    std::erase_if(free_, [&](const Decoder& decoder) { return decoder->layers() != layers; });
    const auto places = Anchor::workerCount(workers) > 1 ? split(first, count)
                                                         : std::vector<std::uint64_t>{first, first + count};
    const std::thread::id caller = std::this_thread::get_id();
    std::atomic<std::uint64_t> done = 0;
    Anchor::runPieces(workers, places.size() - 1, [&](std::size_t i) {
        Decoder decoder = borrow(places[i], layers);
        std::uint64_t place = places[i];
        const auto take = [&](std::span<const Point> block) {
            sink(place, block);
            place += block.size();
            done += block.size();
        };
        PointDecoder::Tick report;
        if (tick && std::this_thread::get_id() == caller)
            report = [&](std::uint64_t) { tick(done); };
        try {
            decoder->decode(places[i], places[i + 1] - places[i], take, report);
        } catch (...) {
            giveBack(std::move(decoder));
            throw;
        }
        giveBack(std::move(decoder));
    });
    // The one that is where the next range is likely to begin.
    Decoder last = borrow(first + count, layers);
    free_.clear();
    giveBack(std::move(last));
}

} // namespace Tidewatch::Las
