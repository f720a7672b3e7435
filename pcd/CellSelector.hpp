// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "geom/PhysicalSpace.hpp"
#include "pcd/inBlocks.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace ExportLib {

/// The implementation of reduceData: several strategies with the same result, of which one is best for a given cloud.
///
/// All of them sort the points by cell, after consecutive points in the same cell have been merged. A table with an
/// entry for each cell of the box has been tried and is not faster than the narrow sort, however few cells there are. A
/// radix sort of wide cell numbers would be a little faster, and take 32 bytes a point; all but the last strategy take at most
/// 20, the result included.
///
/// References the points and intensities, which must outlive it; at least one point is required. Calls `mayGoOn`
/// throughout, in the constructor and in select(), and lets workers, if there are any, work on blocks of points.
class CellSelector {
public:
    /// The strategies, each supported for fewer clouds than the next.
    enum class Strategy {
        SortNarrow,    ///< radix sort of cell numbers below 2^32 with indices below 2^32, 8 bytes together
        CompareWide,   ///< std::sort of cell numbers below 2^64 with indices below 2^32, 12 bytes together
        CompareKeys,   ///< std::sort of keys with indices below 2^32, 16 bytes together
        CompareAnyKeys ///< std::sort of keys with indices, 24 bytes together
    };

    CellSelector(double cellSize, const std::vector<Geom::PhysicalSpace::point>& points,
                 const std::vector<unsigned short>& intensities, const Geom::PhysicalSpace::point& origin,
                 StopQuestion mayGoOn = {}, Anchor::Workers* workers = nullptr);

    /// Whether a strategy can distinguish the cells and points of this cloud.
    [[nodiscard]] bool supports(Strategy strategy) const noexcept;

    /// The fastest of the supported strategies.
    [[nodiscard]] Strategy preferred() const noexcept;

    /// The result of reduceData, the same for every supported strategy; others must not be used.
    [[nodiscard]] std::vector<unsigned long long> select(Strategy strategy) const;

private:
    /// The cell numbers along the axes, narrowed.
    struct Key {
        std::int32_t x, y, z;
    };

    struct NarrowEntry;
    struct WideEntry;
    template <class Index>
    struct KeyEntry;

    /// An array whose memory is touched first by who writes it: the system takes longer to provide it than we to fill it.
    template <class Entry>
    struct Entries {
        explicit Entries(std::size_t count)
            : entries(std::make_unique_for_overwrite<Entry[]>(count)),
              size(count) {}
        [[nodiscard]] Entry* begin() const noexcept { return entries.get(); }
        [[nodiscard]] Entry* end() const noexcept { return entries.get() + size; }
        [[nodiscard]] Entry& operator[](std::size_t i) const noexcept { return entries[i]; }

        std::unique_ptr<Entry[]> entries;
        std::size_t size;
    };

    [[nodiscard]] Key keyOf(std::size_t index) const noexcept;
    [[nodiscard]] std::uint64_t cellOf(std::size_t index) const noexcept;
    [[nodiscard]] std::uint64_t brightness(std::uint64_t index) const noexcept;

    template <class Entry>
    [[nodiscard]] Entries<Entry> collect() const;
    /// The same, sorted by comparing.
    template <class Entry>
    [[nodiscard]] Entries<Entry> collectSorted() const;
    template <class Entry>
    void radixSort(Entries<Entry>& entries, std::uint64_t end) const;
    template <class Index, class Entry>
    [[nodiscard]] std::vector<Index> pick(const Entries<Entry>& sorted) const;

    double cellSize_;
    const std::vector<Geom::PhysicalSpace::point>& points_;
    const std::vector<unsigned short>& intensities_;
    Geom::PhysicalSpace::point origin_;
    bool hasIntensities_;
    StopQuestion mayGoOn_;
    Anchor::Workers* workers_;
    /// The lowest number along each axis.
    Key lowest_{};
    /// Along y and z, the count of numbers from the lowest to the highest.
    std::uint64_t extentY_ = 0;
    std::uint64_t extentZ_ = 0;
    /// The number of cells in the box that the keys span, if it fits 64 bits.
    std::uint64_t volume_ = 0;
    bool isNumbered_ = false;
    /// For each block of points, how many runs of consecutive points with the same key begin before it; at last, how many
    /// there are.
    std::vector<std::size_t> runsBefore_;
};

} // namespace ExportLib
