// SPDX-License-Identifier: Apache-2.0
#include "pcd/CellSelector.hpp"

#include "pcd/reduceData.hpp"

#include <algorithm>
#include <array>
#include <numeric>
#include <tuple>
#include <utility>

namespace ExportLib {

namespace {

std::int32_t narrowed(unsigned long long cellNumber) noexcept {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(cellNumber));
}

/// high - low, for low <= high; the difference of two 32-bit numbers needs 33 bits as a signed number, but only 32 as
/// an unsigned one.
std::uint64_t distance(std::int32_t low, std::int32_t high) noexcept {
    return static_cast<std::uint32_t>(high) - static_cast<std::uint32_t>(low);
}

} // namespace

struct CellSelector::NarrowEntry {
    std::uint64_t packed;

    static NarrowEntry of(const CellSelector& selector, std::size_t index) {
        return {selector.cellOf(index) << 32 | index};
    }
    [[nodiscard]] std::uint64_t cell() const { return packed >> 32; }
    [[nodiscard]] std::uint64_t index() const { return packed & 0xffffffff; }
    [[nodiscard]] bool isInCellOf(const NarrowEntry& other) const {
        return (packed ^ other.packed) >> 32 == 0;
    }
};

/// In three parts, so that no byte is lost between entries.
struct CellSelector::WideEntry {
    std::uint32_t cellHigh;
    std::uint32_t cellLow;
    std::uint32_t pointIndex;

    static WideEntry of(const CellSelector& selector, std::size_t index) {
        const std::uint64_t cell = selector.cellOf(index);
        return {static_cast<std::uint32_t>(cell >> 32), static_cast<std::uint32_t>(cell & 0xffffffff),
                static_cast<std::uint32_t>(index)};
    }
    [[nodiscard]] std::uint64_t cell() const { return std::uint64_t{cellHigh} << 32 | cellLow; }
    [[nodiscard]] std::uint64_t index() const { return pointIndex; }
    [[nodiscard]] bool isInCellOf(const WideEntry& other) const {
        return cellLow == other.cellLow && cellHigh == other.cellHigh;
    }
    friend bool operator<(const WideEntry& a, const WideEntry& b) {
        return a.cell() != b.cell() ? a.cell() < b.cell() : a.pointIndex < b.pointIndex;
    }
};

template <class Index>
struct CellSelector::KeyEntry {
    Key key;
    Index pointIndex;

    static KeyEntry of(const CellSelector& selector, std::size_t index) {
        return {selector.keyOf(index), static_cast<Index>(index)};
    }
    [[nodiscard]] std::uint64_t index() const { return pointIndex; }
    [[nodiscard]] bool isInCellOf(const KeyEntry& other) const {
        return key.x == other.key.x && key.y == other.key.y && key.z == other.key.z;
    }
    friend bool operator<(const KeyEntry& a, const KeyEntry& b) {
        return std::tie(a.key.x, a.key.y, a.key.z, a.pointIndex) <
               std::tie(b.key.x, b.key.y, b.key.z, b.pointIndex);
    }
};

CellSelector::CellSelector(double cellSize, const std::vector<Geom::PhysicalSpace::point>& points,
                           const std::vector<unsigned short>& intensities,
                           const Geom::PhysicalSpace::point& origin, StopQuestion mayGoOn,
                           Anchor::Workers* workers)
    : cellSize_(cellSize),
      points_(points),
      intensities_(intensities),
      origin_(origin),
      hasIntensities_(intensities.size() == points.size()),
      mayGoOn_(std::move(mayGoOn)),
      workers_(workers) {
    struct Range {
        Key low;
        Key high;
        void add(const Key& lower, const Key& upper) {
            low = {std::min(low.x, lower.x), std::min(low.y, lower.y), std::min(low.z, lower.z)};
            high = {std::max(high.x, upper.x), std::max(high.y, upper.y), std::max(high.z, upper.z)};
        }
    };
    const std::size_t blocks = blockCount(points_.size());
    std::vector<Range> ranges(blocks);
    runsBefore_.resize(blocks + 1);
    const auto differ = [](auto a, auto b) { return static_cast<std::size_t>(a != b); };
    inBlocksSideBySide(points_.size(), workers_, mayGoOn_,
                       [&](std::size_t block, std::size_t begin, std::size_t end) {
                           // The first point of all begins a run.
                           std::size_t runs = begin == 0 ? 1 : 0;
                           Key last = keyOf(begin == 0 ? 0 : begin - 1);
                           Range range{keyOf(begin), keyOf(begin)};
                           for (std::size_t i = begin; i < end; ++i) {
                               const Key key = keyOf(i);
                               range.add(key, key);
                               runs += differ(key.x, last.x) | differ(key.y, last.y) | differ(key.z, last.z);
                               last = key;
                           }
                           ranges[block] = range;
                           runsBefore_[block + 1] = runs;
                       });
    std::partial_sum(runsBefore_.begin(), runsBefore_.end(), runsBefore_.begin());
    Range all = ranges.front();
    for (const Range& range : ranges)
        all.add(range.low, range.high);
    const auto [low, high] = all;
    lowest_ = low;
    extentY_ = distance(low.y, high.y) + 1;
    extentZ_ = distance(low.z, high.z) + 1;
    isNumbered_ = !__builtin_mul_overflow(distance(low.x, high.x) + 1, extentY_, &volume_) &&
                  !__builtin_mul_overflow(volume_, extentZ_, &volume_);
}

bool CellSelector::supports(Strategy strategy) const noexcept {
    constexpr std::uint64_t narrowEnd = std::uint64_t{1} << 32;
    const bool hasNarrowIndices = points_.size() <= narrowEnd;
    switch (strategy) {
    case Strategy::SortNarrow:
        return hasNarrowIndices && isNumbered_ && volume_ <= narrowEnd;
    case Strategy::CompareWide:
        return hasNarrowIndices && isNumbered_;
    case Strategy::CompareKeys:
        return hasNarrowIndices;
    case Strategy::CompareAnyKeys:
        return true;
    }
    return false;
}

CellSelector::Strategy CellSelector::preferred() const noexcept {
    for (const Strategy strategy : {Strategy::SortNarrow, Strategy::CompareWide, Strategy::CompareKeys})
        if (supports(strategy))
            return strategy;
    return Strategy::CompareAnyKeys;
}

std::vector<unsigned long long> CellSelector::select(Strategy strategy) const {
    using Index = unsigned long long;
    switch (strategy) {
    case Strategy::SortNarrow: {
        auto entries = collect<NarrowEntry>();
        radixSort(entries, volume_);
        return pick<Index>(entries);
    }
    case Strategy::CompareWide:
        return pick<Index>(collectSorted<WideEntry>());
    case Strategy::CompareKeys: {
        // Entries and a result of this type would take more memory than sorting.
        const auto picked = pick<std::uint32_t>(collectSorted<KeyEntry<std::uint32_t>>());
        return {picked.begin(), picked.end()};
    }
    case Strategy::CompareAnyKeys:
        break;
    }
    return pick<Index>(collectSorted<KeyEntry<std::uint64_t>>());
}

CellSelector::Key CellSelector::keyOf(std::size_t index) const noexcept {
    const Geom::PhysicalSpace::point& p = points_[index];
    return {narrowed(quant(p.x, origin_.x, cellSize_)), narrowed(quant(p.y, origin_.y, cellSize_)),
            narrowed(quant(p.z, origin_.z, cellSize_))};
}

/// The number of a point's cell in the box that the keys span: ascending with the key.
std::uint64_t CellSelector::cellOf(std::size_t index) const noexcept {
    const Key key = keyOf(index);
    return (distance(lowest_.x, key.x) * extentY_ + distance(lowest_.y, key.y)) * extentZ_ +
           distance(lowest_.z, key.z);
}

/// The highest value in a cell wins, and the first of equals; without intensities all are equal.
std::uint64_t CellSelector::brightness(std::uint64_t index) const noexcept {
    return hasIntensities_ ? intensities_[index] : 1;
}

/// One entry for each run of consecutive points in the same cell, with the winning index. In scanned clouds neighbours
/// are often consecutive.
template <class Entry>
CellSelector::Entries<Entry> CellSelector::collect() const {
    Entries<Entry> entries(runsBefore_.back());
    inBlocksSideBySide(points_.size(), workers_, mayGoOn_,
                       [&](std::size_t block, std::size_t begin, std::size_t) {
                           // Runs belong to the block in which they begin, and may end in a later one.
                           std::size_t run = runsBefore_[block];
                           const std::size_t endRun = runsBefore_[block + 1];
                           if (run == endRun)
                               return;
                           std::size_t i = begin;
                           if (i != 0) {
                               const Entry before = Entry::of(*this, i - 1);
                               while (Entry::of(*this, i).isInCellOf(before))
                                   ++i;
                           }
                           while (run != endRun) {
                               Entry winner = Entry::of(*this, i);
                               std::uint64_t best = brightness(i);
                               for (++i; i < points_.size(); ++i) {
                                   const Entry entry = Entry::of(*this, i);
                                   if (!entry.isInCellOf(winner))
                                       break;
                                   if (brightness(i) > best) {
                                       best = brightness(i);
                                       winner = entry;
                                   }
                               }
                               entries[run++] = winner;
                           }
                       });
    return entries;
}

/// Sorts by the cell numbers, all below `end`; entries of one cell keep their order.
template <class Entry>
void CellSelector::radixSort(Entries<Entry>& entries, std::uint64_t end) const {
    constexpr int digitBits = 11;
    constexpr std::size_t digits = std::size_t{1} << digitBits;
    // A table for each block has to be small beside the block.
    constexpr std::size_t block = std::size_t{1} << 18;
    const std::size_t blocks = (entries.size + block - 1) / block;
    const auto digitOf = [](const Entry& entry, int shift) { return (entry.cell() >> shift) & (digits - 1); };

    Entries<Entry> other(entries.size);
    std::vector<std::array<std::size_t, digits>> positions(blocks);
    const auto forBlocks = [&](const auto& work) {
        Anchor::runPieces(
            workers_, blocks,
            [&](std::size_t number) {
                work(positions[number], number * block, std::min(number * block + block, entries.size));
            },
            mayGoOn_);
    };
    for (int shift = 0; shift < 64 && ((end - 1) >> shift) != 0; shift += digitBits) {
        forBlocks([&](auto& counts, std::size_t first, std::size_t last) {
            counts.fill(0);
            for (std::size_t i = first; i < last; ++i)
                ++counts[digitOf(entries[i], shift)];
        });
        std::size_t sum = 0;
        for (std::size_t digit = 0; digit < digits; ++digit) {
            for (auto& counts : positions)
                sum += std::exchange(counts[digit], sum);
        }
        forBlocks([&](auto& next, std::size_t first, std::size_t last) {
            for (std::size_t i = first; i < last; ++i)
                other[next[digitOf(entries[i], shift)]++] = entries[i];
        });
        std::swap(entries, other);
    }
}

template <class Entry>
CellSelector::Entries<Entry> CellSelector::collectSorted() const {
    auto entries = collect<Entry>();
    std::size_t calls = 0;
    if (mayGoOn_)
        std::sort(entries.begin(), entries.end(), AskingLess(mayGoOn_, calls));
    else
        std::sort(entries.begin(), entries.end());
    return entries;
}

template <class Index, class Entry>
std::vector<Index> CellSelector::pick(const Entries<Entry>& sorted) const {
    const auto beginsCell = [&](std::size_t i) { return i == 0 || !sorted[i].isInCellOf(sorted[i - 1]); };
    // Cells belong to the block in which they begin, and may extend beyond it.
    std::vector<std::size_t> cellsBefore(blockCount(sorted.size) + 1);
    inBlocksSideBySide(sorted.size, workers_, mayGoOn_,
                       [&](std::size_t block, std::size_t begin, std::size_t end) {
                           std::size_t cells = 0;
                           for (std::size_t i = begin; i < end; ++i)
                               cells += static_cast<std::size_t>(beginsCell(i));
                           cellsBefore[block + 1] = cells;
                       });
    std::partial_sum(cellsBefore.begin(), cellsBefore.end(), cellsBefore.begin());
    std::vector<Index> result;
    result.reserve(std::max(points_.size() / 2, cellsBefore.back()));
    result.resize(cellsBefore.back());
    inBlocksSideBySide(
        sorted.size, workers_, mayGoOn_, [&](std::size_t block, std::size_t begin, std::size_t end) {
            std::size_t cell = cellsBefore[block];
            for (std::size_t i = begin; i < end;) {
                if (!beginsCell(i)) { // only at the beginning of the block
                    ++i;
                    continue;
                }
                // The search starts with point 0 and brightness 0, and only a brighter point replaces it. So a cell whose
                // points are all dark yields point 0 of the whole cloud, not one of its own. That is on purpose and must
                // stay: each cell keeps its entry, and dark cells can be recognised by it.
                std::uint64_t chosen = 0;
                std::uint64_t best = 0;
                const Entry& first = sorted[i];
                for (; i < sorted.size && sorted[i].isInCellOf(first); ++i) {
                    const std::uint64_t candidate = brightness(sorted[i].index());
                    if (candidate > best) {
                        chosen = sorted[i].index();
                        best = candidate;
                    }
                }
                result[cell++] = static_cast<Index>(chosen);
            }
        });
    return result;
}

} // namespace ExportLib
