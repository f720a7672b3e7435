// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "formats/las/ArithmeticEncoder.hpp"
#include "formats/las/CorrectedNumbers.hpp"
#include "support/LasFileBuilder.hpp"
#include "support/compressLas.hpp"

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace Support {

/// A LAZ file in its parts, to be put together with one of them wrong, or in ways that LASzip's writer does
/// not write.
struct LazAssembly {
    struct Chunk {
        std::uint32_t points;
        std::string bytes;
    };
    /// What the chunk table says of a chunk.
    struct Entry {
        std::uint32_t points;
        std::uint32_t bytes;
    };

    std::string head; ///< everything before the point data
    std::vector<Chunk> chunks;

    static constexpr std::uint32_t variable = 0xFFFFFFFF;

    /// Compresses a file so that its chunks have the given numbers of points. The head states the last of
    /// them as the chunk size, since each chunk comes from its own file.
    [[nodiscard]] static LazAssembly make(const LasFileBuilder& file,
                                          const std::vector<std::uint32_t>& sizes) {
        LazAssembly assembly;
        LasFileBuilder piece = file;
        std::size_t first = 0;
        for (const std::uint32_t size : sizes) {
            const auto begin = file.points.begin() + static_cast<std::ptrdiff_t>(first);
            piece.points.assign(begin, begin + size);
            const std::string bytes = compressLas(piece, size);
            const auto data = number<std::uint32_t>(bytes, 96);
            const auto table = number<std::uint64_t>(bytes, data);
            assembly.head = bytes.substr(0, data);
            assembly.chunks.push_back({size, bytes.substr(data + 8, table - data - 8)});
            first += size;
        }
        assembly.stateCount(first, file);
        return assembly;
    }

    void stateCount(std::uint64_t count, const LasFileBuilder& file) {
        if (file.format < 6)
            patch(head, 107, static_cast<std::uint32_t>(count));
        if (file.minor >= 4)
            patch(head, 247, count);
    }

    /// Where the payload of the compression record, which is the last record, begins in the head.
    [[nodiscard]] std::size_t description() const { return head.rfind("laszip encoded") - 2 + 54; }

    void setCompressor(std::uint16_t compressor) { patch(head, description(), compressor); }
    void setChunkSize(std::uint32_t size) { patch(head, description() + 12, size); }

    [[nodiscard]] std::vector<Entry> entries() const {
        std::vector<Entry> list;
        for (const Chunk& chunk : chunks)
            list.push_back({chunk.points, static_cast<std::uint32_t>(chunk.bytes.size())});
        return list;
    }

    [[nodiscard]] std::string chunkBytes() const {
        std::string bytes;
        for (const Chunk& chunk : chunks)
            bytes += chunk.bytes;
        return bytes;
    }

    /// A chunk table; `withPoints` for chunks of variable size.
    [[nodiscard]] static std::string table(const std::vector<Entry>& entries, bool withPoints) {
        std::string bytes;
        append(bytes, std::uint32_t{0});
        append(bytes, static_cast<std::uint32_t>(entries.size()));
        if (entries.empty())
            return bytes;
        using Formats::Las::CorrectedNumbers;
        Formats::Las::ArithmeticEncoder encoder;
        CorrectedNumbers numbers;
        Entry before{0, 0};
        for (const Entry& entry : entries) {
            if (withPoints)
                numbers.write(encoder, before.points, entry.points, CorrectedNumbers::points);
            numbers.write(encoder, before.bytes, entry.bytes, CorrectedNumbers::bytes);
            before = entry;
        }
        return bytes + encoder.finish();
    }

    /// The file with chunks of variable size.
    [[nodiscard]] std::string buildVariable() const {
        LazAssembly copy = *this;
        copy.setChunkSize(variable);
        return copy.build(table(entries(), true));
    }

    /// The file with a given table.
    [[nodiscard]] std::string build(const std::string& table) const {
        std::string bytes = head;
        const std::string data = chunkBytes();
        append(bytes, std::uint64_t{head.size() + 8 + data.size()});
        return bytes + data + table;
    }

    /// The file as one stream; of one chunk only.
    [[nodiscard]] std::string buildStream() const {
        LazAssembly copy = *this;
        copy.setCompressor(1);
        return copy.head + chunkBytes();
    }
};

} // namespace Support
