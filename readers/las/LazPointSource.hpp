// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/las/Layer.hpp"
#include "readers/las/PointSource.hpp"

#include <cstddef>
#include <memory>
#include <vector>

namespace Tidewatch::Las {

/// The points of a compressed file, decompressed by the LASzip library.
///
/// approach() goes to the beginning of a point's chunk. Files that are one stream, and files of more than
/// 2^32 - 1 points (LASzip counts in 32 bits when it seeks), can only be read forward; going back starts
/// again from the first point.
class LazPointSource final : public PointSource {
public:
    /// Opens the file. Of points in layers, what is in other than the given ones has any value. Throws
    /// Anchor::FileError when the file is gone or has changed, Anchor::FormatError when LASzip refuses it.
    LazPointSource(std::shared_ptr<const LasFile> file, Layers layers);
    ~LazPointSource() override;

    void approach(std::uint64_t point) override;
    void read(std::span<Point> points) override;

private:
    class Decompressor;

    void restart();
    void enterChunk();
    void leaveChunk() const;

    Layers layers_;
    std::unique_ptr<Decompressor> decompressor_;
    std::size_t nextChunk_ = 0;
    std::uint64_t chunkEnd_ = 0; // the first point after the current chunk
    std::vector<std::uint8_t> extraBytes_;
};

} // namespace Tidewatch::Las
