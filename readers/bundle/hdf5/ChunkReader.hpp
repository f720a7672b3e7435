// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/bundle/hdf5/FilterPipeline.hpp"
#include "readers/bundle/hdf5/NumberType.hpp"
#include "readers/bundle/hdf5/Object.hpp"
#include "readers/source/Source.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <typeinfo>
#include <vector>

namespace Tidewatch::Hdf5 {

/// Reads a chunked dataset chunk by chunk: the library locates them, and this project reverses their filters
/// (see FilterPipeline). Made for one pass over one dataset, whose parts it refers to.
class ChunkReader {
public:
    /// `extents` and `chunk` have one entry per axis, slowest axis first, none of them 0.
    ChunkReader(const Object& object, const NumberType& number, const std::vector<std::uint64_t>& extents,
                const std::vector<std::uint64_t>& chunk);

    /// Whether this project implements all filters of the dataset. Otherwise the library has to read the
    /// data.
    [[nodiscard]] bool canDecode() const noexcept { return pipeline_.has_value(); }

    /// Throws Anchor::FormatError unless every chunk that has been written lies inside the file.
    void requireAllInFile() const;

    /// Reads all numbers; see Dataset::read. Only where canDecode().
    void read(const std::type_info& elementType, ArrayMemory& target,
              const std::function<void(double share)>& tick);

private:
    /// How the current chunk is stored; nothing for one that was never written.
    struct Stored {
        std::uint32_t skippedFilters;
        std::uint64_t size;
    };
    [[nodiscard]] std::optional<Stored> locate() const;

    /// The decoded content of the current chunk.
    [[nodiscard]] std::span<const std::byte> load(const Stored& stored);
    /// A chunk of fill values in this machine's byte order.
    [[nodiscard]] std::span<const std::byte> fillValues();
    /// Whether the numbers of each chunk, and chunk after chunk, are a run of the array.
    [[nodiscard]] bool isInOrder() const;

    /// A part of the target: the numbers from `first` on.
    struct Part {
        std::uint64_t first;
        std::span<std::byte> elements;
        std::size_t elementSize;
    };
    /// Copies the part of the current chunk that lies inside the extents to its place in `target`.
    void scatter(std::span<const std::byte> content, const NumberType& stands,
                 const std::type_info& elementType, const Part& target) const;

    const Object& object_;
    const NumberType& number_;
    const std::vector<std::uint64_t>& extents_;
    const std::vector<std::uint64_t>& chunk_;
    std::optional<FilterPipeline> pipeline_;
    std::size_t chunkBytes_;
    std::vector<std::uint64_t> place_; // the first number of the current chunk
    std::vector<std::byte> stored_;
    std::vector<std::byte> filled_;
};

} // namespace Tidewatch::Hdf5
