// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/bundle/hdf5/FilterPipeline.hpp"
#include "readers/bundle/hdf5/NumberType.hpp"
#include "readers/bundle/hdf5/Object.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <typeinfo>
#include <vector>

namespace Tidewatch::Hdf5 {

/// Reads a dataset that is stored in chunks, chunk by chunk: the library finds them, and this project undoes
/// their filters (see FilterPipeline). Made for one pass over one dataset, whose parts it refers to.
class ChunkReader {
public:
    /// `extents` and `chunk` have one entry an axis, slowest axis first, none of them 0.
    ChunkReader(const Object& object, const NumberType& number, const std::vector<std::uint64_t>& extents,
                const std::vector<std::uint64_t>& chunk);

    /// Whether all filters of the dataset are ours to undo. Otherwise the library has to read the data.
    [[nodiscard]] bool canDecode() const noexcept { return pipeline_.has_value(); }

    /// Throws Anchor::FormatError unless every chunk that has been written lies in the file.
    void requireAllInFile() const;

    /// Reads all numbers; see Dataset::read. Only where canDecode().
    void read(const std::type_info& elementType, std::span<std::byte> target,
              const std::function<void(double share)>& tick);

private:
    /// Where the chunk at hand lies in the file; nothing for one that was never written.
    struct Stored {
        std::uint32_t skippedFilters;
        std::uint64_t size;
    };
    [[nodiscard]] std::optional<Stored> locate() const;

    /// The chunk at hand, unfiltered.
    [[nodiscard]] std::span<const std::byte> load(const Stored& stored);
    /// A chunk of fill values in this machine's byte order.
    [[nodiscard]] std::span<const std::byte> fillValues();
    /// Puts the part of the chunk at hand that lies inside the extents where it belongs.
    void scatter(std::span<const std::byte> content, const NumberType& stands,
                 const std::type_info& elementType, std::size_t elementSize,
                 std::span<std::byte> target) const;

    const Object& object_;
    const NumberType& number_;
    const std::vector<std::uint64_t>& extents_;
    const std::vector<std::uint64_t>& chunk_;
    std::optional<FilterPipeline> pipeline_;
    std::size_t chunkBytes_;
    std::vector<std::uint64_t> place_; // the first number of the chunk at hand
    std::vector<std::byte> stored_;
    std::vector<std::byte> filled_;
};

} // namespace Tidewatch::Hdf5
