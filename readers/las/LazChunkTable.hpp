// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/InputFile.hpp"
#include "readers/las/LasHeader.hpp"
#include "readers/las/LazDescription.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Tidewatch::Las {

/// Where the chunks of a compressed file lie and how many points each has.
///
/// Layout of the point data: 8 bytes with the position of the table (-1: the position stands in the last 8
/// bytes of the file), the chunks one behind the other, then the table: version 0 and number of chunks (32
/// bits each), and arithmetically coded per chunk its number of points (for chunks of variable size only) and
/// of bytes, each as the difference to the chunk before. Files compressed as one stream (Pointwise) have
/// neither; they are shown as one chunk whose end is only known not to lie beyond the end of the file.
class LazChunkTable {
public:
    struct Chunk {
        std::uint64_t firstPoint;
        std::uint64_t pointCount;
        std::uint64_t offset; ///< in bytes from the beginning of the file
        std::uint64_t byteCount;
        [[nodiscard]] std::uint64_t endOffset() const noexcept { return offset + byteCount; }
    };

    /// More points than this cannot come out of one compressed byte. A point costs at least the symbols that
    /// every point has (which values change, the differences in x and y), and no symbol of an n-symbol model
    /// is ever more probable than 1 - (n - 1) / 2^15; that makes 0.0075 bits, 1070 points a byte, for the
    /// cheapest item.
    static constexpr std::uint64_t mostPointsPerByte = 2048;

    /// No chunk of LASzip's may be larger: it keeps the sizes in 32 bits with a sign.
    static constexpr std::uint64_t mostChunkBytes = 0x7FFFFFFF;

    /// Reads the table and checks that the chunks fill the point data exactly and hold the stated number of
    /// points. Nothing is allocated by numbers that the size of the file does not cover. Throws
    /// Anchor::FormatError, also where the table is missing because the writer was interrupted.
    [[nodiscard]] static LazChunkTable read(const InputFile& file, const LasHeader& header,
                                            const LazDescription& description);

    [[nodiscard]] std::size_t size() const noexcept { return starts_.size() - 1; }
    [[nodiscard]] Chunk operator[](std::size_t index) const noexcept;

    /// The chunk that holds a point, which must exist.
    [[nodiscard]] std::size_t find(std::uint64_t point) const noexcept;

    /// Where the table itself begins, which is where the last chunk ends.
    [[nodiscard]] std::uint64_t tableOffset() const noexcept { return starts_.back().offset; }

private:
    struct Start {
        std::uint64_t firstPoint;
        std::uint64_t offset;
    };

    std::vector<Start> starts_; // one more than there are chunks: the end
};

} // namespace Tidewatch::Las
