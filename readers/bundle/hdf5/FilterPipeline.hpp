// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace Tidewatch::Hdf5 {

/// Reverses the filters that HDF5 applies to a chunk: deflate, shuffle and the Fletcher-32 checksum.
///
/// The library can do so as well, but does not check the decompressed size: it lets a small deflated chunk
/// fill the memory, and reads past the end of one that decompresses to too little. Here the result has the
/// chunk's size, or there is an error. (The filters are described in the HDF5 File Format Specification,
/// section IV.A.2.l, and the zlib format in RFC 1950.)
class FilterPipeline {
public:
    enum class Filter : std::uint8_t { Deflate, Shuffle, Fletcher32 };

    /// Adds the filter that was applied next when the chunk was written. `elementSize` is for Shuffle.
    void add(Filter filter, std::size_t elementSize = 0) { steps_.push_back({filter, elementSize}); }

    [[nodiscard]] std::size_t size() const noexcept { return steps_.size(); }

    /// Decodes a chunk's stored bytes. Bit i of `skipped` means that filter i was not applied to this chunk.
    /// The result is valid until the next call. Throws Anchor::FormatError, with a text that says only what
    /// is wrong with the chunk, when the content is damaged or does not have exactly `size` bytes. Buffers
    /// grow with the decoded data, up to `size` and a constant.
    [[nodiscard]] std::span<const std::byte> decode(std::vector<std::byte>& stored, std::uint32_t skipped,
                                                    std::size_t size);

private:
    struct Step {
        Filter filter;
        std::size_t elementSize;
    };

    void inflate(std::vector<std::byte>& data, std::size_t most);
    void unshuffle(std::vector<std::byte>& data, std::size_t elementSize);

    std::vector<Step> steps_;
    std::vector<std::byte> spare_;
};

} // namespace Tidewatch::Hdf5
