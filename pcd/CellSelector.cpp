// SPDX-License-Identifier: Apache-2.0
#include "pcd/CellSelector.hpp"

#include "pcd/reduceData.hpp"

#include <algorithm>
#include <array>
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

/// Sorts by the cell numbers, all below `end`; entries of one cell keep their order.
template <class Entry>
void radixSort(std::vector<Entry>& entries, std::uint64_t end, const StopQuestion& mayGoOn) {
    constexpr int digitBits = 11;
    constexpr std::size_t digits = std::size_t{1} << digitBits;
    const auto digitOf = [](const Entry& entry, int shift) { return (entry.cell() >> shift) & (digits - 1); };

    // Grown in blocks, because the system is slow to provide so much memory and the host may want to stop.
    std::vector<Entry> other;
    other.reserve(entries.size());
    inBlocks(entries.size(), mayGoOn, [&](std::size_t, std::size_t last) { other.resize(last); });
    for (int shift = 0; shift < 64 && ((end - 1) >> shift) != 0; shift += digitBits) {
        std::array<std::size_t, digits> positions{};
        inBlocks(entries.size(), mayGoOn, [&](std::size_t first, std::size_t last) {
            for (std::size_t i = first; i < last; ++i)
                ++positions[digitOf(entries[i], shift)];
        });
        std::size_t sum = 0;
        for (std::size_t& position : positions)
            sum += std::exchange(position, sum);
        inBlocks(entries.size(), mayGoOn, [&](std::size_t first, std::size_t last) {
            for (std::size_t i = first; i < last; ++i)
                other[positions[digitOf(entries[i], shift)]++] = entries[i];
        });
        entries.swap(other);
    }
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
                           const Geom::PhysicalSpace::point& origin, StopQuestion mayGoOn)
    : cellSize_(cellSize),
      points_(points),
      intensities_(intensities),
      origin_(origin),
      hasIntensities_(intensities.size() == points.size()),
      mayGoOn_(std::move(mayGoOn)) {
    Key last = keyOf(0);
    Key low = last;
    Key high = last;
    runs_ = 1;
    const auto differ = [](auto a, auto b) { return static_cast<std::size_t>(a != b); };
    inBlocks(points_.size(), mayGoOn_, [&](std::size_t begin, std::size_t end) {
        for (std::size_t i = begin; i < end; ++i) {
            const Key key = keyOf(i);
            low = {std::min(low.x, key.x), std::min(low.y, key.y), std::min(low.z, key.z)};
            high = {std::max(high.x, key.x), std::max(high.y, key.y), std::max(high.z, key.z)};
            runs_ += differ(key.x, last.x) | differ(key.y, last.y) | differ(key.z, last.z);
            last = key;
        }
    });
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
        radixSort(entries, volume_, mayGoOn_);
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
std::vector<Entry> CellSelector::collect() const {
    std::vector<Entry> entries;
    entries.reserve(runs_);
    entries.push_back(Entry::of(*this, 0));
    std::uint64_t best = brightness(0);
    inBlocks(points_.size(), mayGoOn_, [&](std::size_t begin, std::size_t end) {
        for (std::size_t i = std::max<std::size_t>(begin, 1); i < end; ++i) {
            const Entry entry = Entry::of(*this, i);
            const std::uint64_t candidate = brightness(i);
            if (!entry.isInCellOf(entries.back())) {
                entries.push_back(entry);
                best = candidate;
            } else if (candidate > best) {
                entries.back() = entry;
                best = candidate;
            }
        }
    });
    return entries;
}

template <class Entry>
std::vector<Entry> CellSelector::collectSorted() const {
    auto entries = collect<Entry>();
    std::size_t calls = 0;
    if (mayGoOn_)
        std::sort(entries.begin(), entries.end(), AskingLess(mayGoOn_, calls));
    else
        std::sort(entries.begin(), entries.end());
    return entries;
}

template <class Index, class Entry>
std::vector<Index> CellSelector::pick(const std::vector<Entry>& sorted) const {
    std::size_t occupied = 1;
    inBlocks(sorted.size(), mayGoOn_, [&](std::size_t begin, std::size_t end) {
        for (std::size_t i = std::max<std::size_t>(begin, 1); i < end; ++i)
            occupied += static_cast<std::size_t>(!sorted[i].isInCellOf(sorted[i - 1]));
    });
    std::vector<Index> result;
    result.reserve(std::max(points_.size() / 2, occupied));
    // A cell may extend beyond its block.
    std::size_t i = 0;
    inBlocks(sorted.size(), mayGoOn_, [&](std::size_t, std::size_t end) {
        while (i < end) {
            // The search starts with point 0 and brightness 0, and only a brighter point replaces it. So a cell whose
            // points are all dark yields point 0 of the whole cloud, not one of its own. That is on purpose and must
            // stay: each cell keeps its entry, and dark cells can be recognised by it.
            std::uint64_t chosen = 0;
            std::uint64_t best = 0;
            const Entry& first = sorted[i];
            for (; i < sorted.size() && sorted[i].isInCellOf(first); ++i) {
                const std::uint64_t candidate = brightness(sorted[i].index());
                if (candidate > best) {
                    chosen = sorted[i].index();
                    best = candidate;
                }
            }
            result.push_back(static_cast<Index>(chosen));
        }
    });
    return result;
}

} // namespace ExportLib
