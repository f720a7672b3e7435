// SPDX-License-Identifier: Apache-2.0
#include "pcd/heightQuantiles.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <vector>

namespace ExportLib {

namespace {

using Heights = std::vector<double>::iterator;

void select(Heights begin, Heights nth, Heights end, const StopQuestion& mayGoOn) {
    std::size_t calls = 0;
    if (mayGoOn)
        std::nth_element(begin, nth, end, AskingLess(mayGoOn, calls));
    else
        std::nth_element(begin, nth, end);
}

/// Heights by rank: they are counted in bins of equal width, and only those of one bin are ordered.
class RankedHeights {
public:
    RankedHeights(const std::vector<Geom::PhysicalSpace::point>& points, const StopQuestion& mayGoOn,
                  Anchor::Workers* workers)
        : points_(points),
          mayGoOn_(mayGoOn),
          workers_(workers) {
        findRange();
        countBins();
    }

    /// The height of a rank, from 0, in ascending order; NaN heights come last.
    [[nodiscard]] double at(std::size_t rank) const {
        std::size_t bin = 0;
        for (; bin < bins && rank >= counts_[bin]; ++bin)
            rank -= counts_[bin];
        if (bin == bins)
            return std::numeric_limits<double>::quiet_NaN();
        std::vector<double> heights;
        heights.reserve(counts_[bin]);
        inBlocks(points_.size(), mayGoOn_, [&](std::size_t begin, std::size_t end) {
            for (std::size_t i = begin; i < end; ++i) {
                if (binOf(points_[i].z) == bin)
                    heights.push_back(points_[i].z);
            }
        });
        const auto nth = heights.begin() + static_cast<std::ptrdiff_t>(rank);
        select(heights.begin(), nth, heights.end(), mayGoOn_);
        return *nth;
    }

private:
    static constexpr std::size_t bins = 4096;
    static constexpr std::size_t noBin = bins;

    struct Range {
        double low = std::numeric_limits<double>::infinity();
        double high = -std::numeric_limits<double>::infinity();
        void add(double lowest, double highest) {
            low = std::min(low, lowest);
            high = std::max(high, highest);
        }
    };

    /// Ascending with the height; noBin for NaN. Without a finite range there is one bin.
    [[nodiscard]] std::size_t binOf(double height) const noexcept {
        if (std::isnan(height))
            return noBin;
        if (binsPerUnit_ == 0)
            return 0;
        return std::min(static_cast<std::size_t>((height - range_.low) * binsPerUnit_), bins - 1);
    }

    void findRange() {
        std::vector<Range> ranges(blockCount(points_.size()));
        inBlocksSideBySide(points_.size(), workers_, mayGoOn_,
                           [&](std::size_t block, std::size_t begin, std::size_t end) {
                               for (std::size_t i = begin; i < end; ++i) {
                                   if (!std::isnan(points_[i].z))
                                       ranges[block].add(points_[i].z, points_[i].z);
                               }
                           });
        for (const Range& range : ranges)
            range_.add(range.low, range.high);
        const double perUnit = static_cast<double>(bins) / (range_.high - range_.low);
        if (std::isfinite(range_.low) && std::isfinite(range_.high) && std::isfinite(perUnit))
            binsPerUnit_ = perUnit;
    }

    void countBins() {
        // A table for each part has to be small beside the part.
        constexpr std::size_t part = std::size_t{1} << 18;
        const std::size_t parts = (points_.size() + part - 1) / part;
        std::vector<std::array<std::size_t, bins + 1>> counts(parts);
        Anchor::runPieces(
            workers_, parts,
            [&](std::size_t number) {
                auto& mine = counts[number];
                const std::size_t end = std::min(number * part + part, points_.size());
                for (std::size_t i = number * part; i < end; ++i)
                    ++mine[binOf(points_[i].z)];
            },
            mayGoOn_);
        for (const auto& one : counts) {
            for (std::size_t bin = 0; bin < bins; ++bin)
                counts_[bin] += one[bin];
        }
    }

    const std::vector<Geom::PhysicalSpace::point>& points_;
    const StopQuestion& mayGoOn_;
    Anchor::Workers* workers_;
    Range range_;
    double binsPerUnit_ = 0;
    std::array<std::size_t, bins> counts_{};
};

} // namespace

HeightQuantiles heightQuantiles(const std::vector<Geom::PhysicalSpace::point>& points,
                                const StopQuestion& mayGoOn, Anchor::Workers* workers) {
    if (points.empty())
        return {};
    const RankedHeights heights(points, mayGoOn, workers);
    const std::size_t k = points.size() / 20;
    return {heights.at(k), heights.at(19 * k)};
}

} // namespace ExportLib
