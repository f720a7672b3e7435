// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/InputFile.hpp"
#include "readers/las/LasHeader.hpp"
#include "readers/las/LazDescription.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Tidewatch::Las {

/// The position and number of points of each chunk of a compressed file.
///
/// Layout of the point data: 8 bytes with the position of the table (-1: the position is in the last 8 bytes
/// of the file), the consecutive chunks, then the table: version 0 and number of chunks (32 bits each), and,
/// arithmetically coded, for each chunk its number of points (for chunks of variable size only) and of bytes,
/// each as the difference from the previous chunk. Files compressed as one stream (Pointwise) have neither;
/// they are represented as one chunk that ends at the end of the file.
class LazChunkTable {
public:
    struct Chunk {
        std::uint64_t firstPoint;
        std::uint64_t pointCount;
        std::uint64_t offset; ///< in bytes from the beginning of the file
        std::uint64_t byteCount;
        [[nodiscard]] std::uint64_t endOffset() const noexcept { return offset + byteCount; }
    };

    /// One compressed byte cannot hold more points than this. A point has at least the symbols of every point
    /// (which values change, the differences in x and y), and no symbol of an n-symbol model is more probable
    /// than 1 - (n - 1) / 2^15; that makes 0.0075 bits, 1070 points per byte, for the cheapest item.
    static constexpr std::uint64_t mostPointsPerByte = 2048;

    /// LASzip supports no larger chunks: it stores sizes as signed 32-bit numbers.
    static constexpr std::uint64_t mostChunkBytes = 0x7FFFFFFF;

    /// Reads the table and checks that the chunks fill the point data exactly and hold the stated number of
    /// points. Allocations are bounded by the size of the file. Throws Anchor::FormatError, also when the
    /// table is missing because the writer was interrupted.
    [[nodiscard]] static LazChunkTable read(const InputFile& file, const LasHeader& header,
                                            const LazDescription& description);

    [[nodiscard]] std::size_t size() const noexcept { return starts_.size() - 1; }
    [[nodiscard]] Chunk operator[](std::size_t index) const noexcept;

    /// The chunk that holds a point, which must exist.
    [[nodiscard]] std::size_t find(std::uint64_t point) const noexcept;

    /// Where the table begins, which is where the last chunk ends.
    [[nodiscard]] std::uint64_t tableOffset() const noexcept { return starts_.back().offset; }

private:
    struct Start {
        std::uint64_t firstPoint;
        std::uint64_t offset;
    };

    std::vector<Start> starts_; // one more than there are chunks: the last is the end
};

} // namespace Tidewatch::Las
