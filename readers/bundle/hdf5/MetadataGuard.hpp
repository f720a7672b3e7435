// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/bundle/hdf5/HeaderMessages.hpp"
#include "readers/bundle/hdf5/Library.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace Tidewatch::Hdf5 {

/// Looks at the blocks of metadata that the HDF5 library reads from a file, before the library does, and
/// keeps from it those on which it would loop, recurse without end or leave its memory. It knows files with
/// addresses and sizes of 8 bytes.
///
/// Object headers: the library frees what it never made when it cannot decode one of a group's links, reads
/// types and attributes to where they say they end, divides by the extents of chunks, and makes room for a
/// header of any size.
/// Local heaps: it follows the list of free space until it ends, and never asks whether it ends.
/// B-trees of version 1: it goes down into whatever a node calls its child, be it the node itself. Here a
/// node has one parent at most, and its level is one less than that of its parent. B-trees of version 2 and
/// fractal heaps, and arrays that index chunks: it divides, shifts and allocates by the numbers in their
/// headers. Global heaps, which hold texts of variable length and the maps of virtual datasets, are not read
/// at all: the library trusts their sizes (see variableText for the texts).
/// (HDF5 File Format Specification, sections III.A, III.D, III.E, III.G, IV.A.1, IV.A.2, VII.C and VII.D.)
class MetadataGuard {
public:
    /// Fills a block with bytes of the file from an address on; false when they are not all there.
    using Fetch = std::function<bool(std::uint64_t address, std::span<unsigned char> target)>;

    /// What speaks against giving a block to the library; nothing where nothing does.
    [[nodiscard]] std::optional<std::string> fault(H5FD_mem_t type, std::uint64_t address,
                                                   std::span<const unsigned char> block, const Fetch& fetch);

    /// How many entries the nodes of the file's trees of chunks have room for. Has to be told before a
    /// dataset is opened.
    void setEntriesOfChunkNode(std::size_t count) noexcept { entriesOfChunkNode_ = count; }

private:
    /// A block of the file.
    struct Place {
        std::uint64_t address;
        std::uint64_t size;
    };

    [[nodiscard]] std::optional<std::string>
    headerFault(std::uint64_t address, std::span<const unsigned char> block, const Fetch& fetch);
    /// Also gives the places where the header goes on.
    [[nodiscard]] static std::optional<std::string> messagesFault(const HeaderForm& form,
                                                                  std::span<const unsigned char> block,
                                                                  std::vector<Place>& continuations);
    [[nodiscard]] static std::optional<std::string> localHeapFault(std::span<const unsigned char> header,
                                                                   const Fetch& fetch);
    [[nodiscard]] static std::optional<std::string> indexFault(std::span<const unsigned char> header);
    [[nodiscard]] static std::optional<std::string> fractalHeapFault(std::span<const unsigned char> header);
    [[nodiscard]] static std::optional<std::string> fixedArrayFault(std::span<const unsigned char> header,
                                                                    const Fetch& fetch);
    [[nodiscard]] static std::optional<std::string> growingArrayFault(std::span<const unsigned char> header);
    [[nodiscard]] std::optional<std::string>
    treeFault(std::uint64_t address, std::span<const unsigned char> node, const Fetch& fetch);

    std::unordered_map<std::uint64_t, std::uint64_t> continuations_; // of headers: size by address
    std::unordered_map<std::uint64_t, std::uint64_t> parents_;       // nodes by address
    std::size_t entriesOfChunkNode_ = 64; // the format's own number, unless the file states another
};

} // namespace Tidewatch::Hdf5
