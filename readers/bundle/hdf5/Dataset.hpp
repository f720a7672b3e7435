// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/bundle/hdf5/NumberType.hpp"
#include "readers/bundle/hdf5/Object.hpp"
#include "readers/source/Source.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <typeinfo>
#include <vector>

namespace Tidewatch::Hdf5 {

/// A dataset of numbers whose metadata has been checked against the file, so that it is safe to read.
class Dataset {
public:
    /// Called with the share (0 to 1) of the numbers that have been read; may throw to stop.
    using Tick = std::function<void(double share)>;

    /// Checks an object. Throws Anchor::FormatError when it is not a dataset of numbers of a known type with
    /// one to five axes, when its data lies in other files (external storage, virtual datasets), when its
    /// size exceeds 64 bits, or when data stored without chunks is incomplete.
    explicit Dataset(Object object);

    [[nodiscard]] const Object& object() const noexcept { return object_; }

    [[nodiscard]] const NumberType& number() const noexcept { return number_; }

    /// The extents, slowest axis first, as HDF5 has them.
    [[nodiscard]] const std::vector<std::uint64_t>& extents() const noexcept { return extents_; }

    /// Reads all numbers, converted to a scalar element type that number() holds. `target` has exactly their
    /// size; it gets pieces in ascending order, or all numbers as one piece. Throws Anchor::FormatError when data is damaged or a value does not fit the element type,
    /// Anchor::LimitError for chunks larger than `most` bytes.
    void read(const std::type_info& elementType, ArrayMemory& target, std::uint64_t most,
              const Tick& tick) const;

private:
    enum class Layout : std::uint8_t { Compact, Contiguous, Chunked };

    [[nodiscard]] static NumberType numberOf(const Object& object);
    void readShape();
    void readLayout();
    void readChunkShape(hid_t properties);
    /// Throws for a filter that is not built into the library, which would look for a plugin.
    void requireBuiltInFilters(hid_t properties) const;

    /// For data without chunks, and for chunks with filters that this project does not implement.
    void readByLibrary(const std::type_info& elementType, ArrayMemory& target, const Tick& tick) const;

    Object object_;
    NumberType number_;
    Layout layout_ = Layout::Compact;
    std::vector<std::uint64_t> extents_;
    std::vector<std::uint64_t> chunk_; // extents of a chunk; empty for data without chunks
};

} // namespace Tidewatch::Hdf5
