// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Workers.hpp"
#include "readers/las/LasFile.hpp"
#include "readers/las/PointDecoder.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

namespace Tidewatch::Las {

/// Decodes ranges of points of one file, with workers in pieces side by side: compressed points by chunks, plain ones
/// by blocks. Files that can only be read forward (one stream, or more points than LASzip can seek) are decoded in one
/// piece.
///
/// Between calls it keeps one decoder, so that continuing after the previous range with the same layers costs no seek;
/// during a call it
/// opens the file once per worker. Not thread-safe.
class DecoderPool {
public:
    /// Takes a block of points, whose first one is number `first` of the file; valid during the call. Called by
    /// several threads at once.
    using Sink = std::function<void(std::uint64_t first, std::span<const Point> points)>;

    /// The file is opened when the first point is requested.
    explicit DecoderPool(std::shared_ptr<const LasFile> file);

    /// Passes the points [first, first + count), which must exist, to `sink`; in order if there are no workers (null).
    /// Only the given layers need to be decoded, as for PointDecoder.
    /// `tick` is that of PointDecoder, called on the calling thread. Throws what PointDecoder::decode() throws, for
    /// the first damaged point of the range whatever the number of workers.
    void decode(std::uint64_t first, std::uint64_t count, Layers layers, Anchor::Workers* workers,
                const Sink& sink, const PointDecoder::Tick& tick = {});

private:
    using Decoder = std::unique_ptr<PointDecoder>;

    [[nodiscard]] std::vector<std::uint64_t> split(std::uint64_t first, std::uint64_t count) const;
    [[nodiscard]] Decoder borrow(std::uint64_t point, Layers layers);
    void giveBack(Decoder decoder);

    std::shared_ptr<const LasFile> file_;
    std::mutex mutex_;
    std::vector<Decoder> free_;
};

} // namespace Tidewatch::Las
