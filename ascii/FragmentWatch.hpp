// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ascii/CheckType.hpp"
#include "ascii/EsriGridHeader.hpp"
#include "ascii/TextRounding.hpp"
#include "convlib/LineWriter.hpp"

#include <cmath>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>
#include <vector>

namespace ExportLib {

/// Counts how values change that are written with a number of decimals.
template <class T, bool isObserved>
class ValueCounts {
public:
    ValueCounts(unsigned int decimals, bool isIdle) : rounding_(decimals), isIdle_(isIdle) {}

    /// An element is written.
    void add(const T& element) {
        if constexpr (isObserved) {
            if (!isIdle_)
                rounding_.add(element);
        }
    }

    /// The number of a cell is written.
    void addCell(const T& value, unsigned char type) {
        add(value);
        if constexpr (isObserved) {
            bool isNoData = false;
            if constexpr (std::is_signed_v<T>)
                isNoData = value == T{EsriGridHeader::noDataNumber};
            // A cell of type 0 has no value, by the habit of rasters.
            valueless_ += type == 0 && !isNoData ? 1U : 0U;
            asNoData_ += type != 0 && isNoData ? 1U : 0U;
            if constexpr (std::floating_point<T>)
                notFinite_ += std::isfinite(value) ? 0U : 1U;
        }
    }

    void add(const ValueCounts& other) noexcept {
        rounding_.add(other.rounding_);
        valueless_ += other.valueless_;
        asNoData_ += other.asNoData_;
        notFinite_ += other.notFinite_;
    }

    /// Calls report(change, count, greatest change) for each kind of change.
    template <class Report>
    void report(Report&& report) const {
        report(ConvLib::ValueChange::Rounded, rounding_.count(), rounding_.worst());
        report(ConvLib::ValueChange::Valueless, valueless_, 0.0);
        report(ConvLib::ValueChange::AsNoData, asNoData_, 0.0);
        report(ConvLib::ValueChange::NotFinite, notFinite_, 0.0);
    }

private:
    TextRounding<T> rounding_;
    bool isIdle_;
    std::uint64_t valueless_ = 0;
    std::uint64_t asNoData_ = 0;
    std::uint64_t notFinite_ = 0;
};

/// Writes the elements of one fragment in blocks, side by side if the host lends workers; calls its stop question, and
/// reports to its observer, if there is one, what is written and how values changed.
template <class T, bool isObserved>
class FragmentWatch {
public:
    using Counts = ValueCounts<T, isObserved>;

    FragmentWatch(const CheckType& c, unsigned int decimals)
        : run_(c.run),
          field_(c.fieldName),
          isPositions_(std::same_as<T, Geom::PhysicalSpace::point> && field_ == positionsName),
          decimals_(decimals) {}

    /// Appends elements 0 to count - 1: compose(text, begin, end, counts) those from `begin` on and below `end`.
    /// `spanOf(begin, end)` gives the elements to the observer of positions.
    template <class Compose, class SpanOf>
    void write(ConvLib::LineWriter& lines, std::uint64_t count, Compose&& compose, SpanOf&& spanOf) {
        // Small enough that each processor has several, large enough to be worth handing out.
        constexpr std::size_t block = 16384;
        // Positions are judged by what becomes of the points.
        const Counts none(decimals_, isPositions_);
        std::vector<Counts> counts((count + block - 1) / block, none);
        ask();
        lines.composeInBlocks(
            count, block, run_ != nullptr ? run_->workers() : nullptr,
            [&](ConvLib::LineText& text, std::size_t begin, std::size_t end) {
                compose(text, begin, end, counts[begin / block]);
            },
            [&](std::size_t begin, std::size_t end) {
                if constexpr (isObserved && std::same_as<T, Geom::PhysicalSpace::point>) {
                    if (isPositions_)
                        run_->Observer()->positionsWritten(spanOf(begin, end));
                }
                ask();
            });
        if constexpr (isObserved) {
            Counts all = none;
            for (const Counts& part : counts)
                all.add(part);
            all.report([&](ConvLib::ValueChange change, std::uint64_t changed, double most) {
                if (changed != 0)
                    run_->Observer()->valuesChanged({field_, change, changed, count, most});
            });
        }
    }

    void ask() const {
        if (run_ != nullptr)
            run_->askWhetherToStop();
    }

private:
    const ConvLib::BasicConverterDefs* run_;
    std::string_view field_;
    bool isPositions_;
    unsigned int decimals_;
};

} // namespace ExportLib
