// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"
#include "readers/las/LasFile.hpp"
#include "readers/las/Layer.hpp"
#include "readers/las/PointSource.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

namespace Tidewatch::Las {

/// Decodes ranges of points of one file, best in ascending order.
///
/// It keeps the file open and its position, so that continuing after the previous range costs no seek.
/// Otherwise decoding starts anywhere in plain files, at the beginning of a chunk in compressed ones, and at
/// the first point in those compressed as one stream. Memory: some hundred kilobytes, and for layered
/// compression the bytes of a chunk. Not thread-safe.
class TIDEWATCH_API PointDecoder {
public:
    /// Takes a block of points; valid during the call.
    using Sink = std::function<void(std::span<const Point> points)>;

    /// Called at least every `tickInterval` points with the number of points of the range that are done; may
    /// throw to stop, and decode() may be called again afterwards.
    using Tick = std::function<void(std::uint64_t pointsDone)>;

    static constexpr std::uint64_t tickInterval = 16'384;

    /// The file is opened when the first point is requested. Of points that are compressed in layers, parts that are
    /// in other layers than the given ones are not decoded and have any value.
    explicit PointDecoder(std::shared_ptr<const LasFile> file, Layers layers = allLayers);
    ~PointDecoder();

    /// Passes the points [first, first + count), which must exist, to `sink`, in order and some hundred at a
    /// time. Throws Anchor::FormatError for damaged points, Anchor::FileError where the file cannot be read,
    /// is missing or has changed since the LasFile was created, and what `tick` and `sink` throw.
    void decode(std::uint64_t first, std::uint64_t count, const Sink& sink, const Tick& tick = {});

    /// The point that is decoded next without a seek: the one after the previous range; 0 before the first.
    [[nodiscard]] std::uint64_t position() const noexcept;

    [[nodiscard]] Layers layers() const noexcept { return layers_; }

private:
    void goTo(std::uint64_t point, const Tick& tick);
    [[nodiscard]] std::span<const Point> nextBlock(std::uint64_t most);
    void maybeTick(const Tick& tick, std::uint64_t done);

    std::shared_ptr<const LasFile> file_;
    Layers layers_;
    std::unique_ptr<PointSource> source_; // null before the first point and after an error
    std::vector<Point> block_;
    std::size_t blockSize_ = 0;
    std::uint64_t sinceTick_ = 0;
};

} // namespace Tidewatch::Las
