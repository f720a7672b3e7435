// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "formats/las/layout.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace Tidewatch::Las {

/// How the points of a file are compressed: the record "laszip encoded" / 22204 (published LASzip format; the
/// record's layout is documented in comments of the LASzip sources).
struct LazDescription {
    /// The compressors, with their numbers in the file.
    enum class Compressor : std::uint16_t {
        Pointwise = 1,        ///< one stream for all points, which can only be read forward
        PointwiseChunked = 2, ///< chunks of points, each a separate stream
        LayeredChunked = 3,   ///< chunks in which each attribute is a separate stream (formats 6 to 10)
    };

    /// The items, with their numbers in the file; an item is a group of attributes that are compressed
    /// together.
    enum class ItemType : std::uint16_t {
        Byte = 0,
        Point10 = 6,
        GpsTime11 = 7,
        Rgb12 = 8,
        WavePacket13 = 9,
        Point14 = 10,
        Rgb14 = 11,
        RgbNir14 = 12,
        WavePacket14 = 13,
        Byte14 = 14,
    };

    struct Item {
        ItemType type;
        std::uint16_t size; ///< bytes
        std::uint16_t version;
        friend bool operator==(const Item&, const Item&) = default;
    };

    /// Bytes of the record without its items, and of one item.
    static constexpr std::size_t fixedSize = Formats::Las::Compression::fixedSize;
    static constexpr std::size_t itemSize = Formats::Las::Compression::itemSize;

    /// The chunk size that means that the chunk table lists the sizes.
    static constexpr std::uint32_t variableChunkSize = 0xFFFFFFFF;

    Compressor compressor = Compressor::PointwiseChunked;
    std::uint32_t chunkSize = 0; ///< points of a chunk, not 0; meaningless for Pointwise
    std::vector<Item> items;

    [[nodiscard]] bool hasChunks() const noexcept { return compressor != Compressor::Pointwise; }
    [[nodiscard]] bool isLayered() const noexcept { return compressor == Compressor::LayeredChunked; }
    [[nodiscard]] bool hasVariableChunks() const noexcept {
        return hasChunks() && chunkSize == variableChunkSize;
    }

    /// Streams of a layered chunk.
    [[nodiscard]] std::size_t layerCount() const noexcept;

    /// Reads the record's payload and checks that it agrees with the point format and the record length and
    /// that all of it is known to the decompressor. Throws Anchor::FormatError naming `path`.
    [[nodiscard]] static LazDescription parse(std::span<const std::uint8_t> payload, unsigned pointFormat,
                                              std::uint16_t recordLength, std::string_view path);

    /// The items (with version 0) that the points of a format and length consist of. The length must not be
    /// below the format's natural size.
    [[nodiscard]] static std::vector<Item> itemsOf(unsigned pointFormat, std::uint16_t recordLength);
};

} // namespace Tidewatch::Las
