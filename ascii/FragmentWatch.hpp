// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ascii/CheckType.hpp"
#include "ascii/EsriGridHeader.hpp"
#include "ascii/TextRounding.hpp"

#include <cmath>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

namespace ExportLib {

/// Accompanies the writing of one fragment: calls the host's stop question, and reports to the observer, if there is
/// one, how values changed.
template <class T, bool isObserved>
class FragmentWatch {
public:
    /// The maximum number of elements that a writer writes between two calls of wrote().
    static constexpr std::uint64_t block = ConvLib::BasicConverterDefs::stopInterval;

    FragmentWatch(const CheckType& c, unsigned int decimals)
        : run_(c.run),
          field_(c.fieldName),
          isPositions_(std::same_as<T, Geom::PhysicalSpace::point> && field_ == positionsName),
          rounding_(decimals) {}

    /// An element is written.
    void add(const T& element) {
        if constexpr (isObserved) {
            if (!isPositions_)
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

    /// These elements, or so many cells, have been written.
    void wrote(std::span<const T> elements) {
        if constexpr (isObserved && std::same_as<T, Geom::PhysicalSpace::point>) {
            if (isPositions_)
                run_->Observer()->positionsWritten(elements);
        }
        wrote(elements.size());
    }
    void wrote(std::uint64_t count) {
        sinceQuestion_ += count;
        if (sinceQuestion_ < block)
            return;
        sinceQuestion_ = 0;
        if (run_ != nullptr)
            run_->askWhetherToStop();
    }

    /// All of `total` elements have been written.
    void finish(std::uint64_t total) const {
        if constexpr (isObserved) {
            report(ConvLib::ValueChange::Rounded, rounding_.count(), total, rounding_.worst());
            report(ConvLib::ValueChange::Valueless, valueless_, total);
            report(ConvLib::ValueChange::AsNoData, asNoData_, total);
            report(ConvLib::ValueChange::NotFinite, notFinite_, total);
        }
    }

private:
    void report(ConvLib::ValueChange change, std::uint64_t count, std::uint64_t total,
                double most = 0) const {
        if (count != 0)
            run_->Observer()->valuesChanged({field_, change, count, total, most});
    }

    const ConvLib::BasicConverterDefs* run_;
    std::string_view field_;
    bool isPositions_;
    TextRounding<T> rounding_;
    std::uint64_t sinceQuestion_ = 0;
    std::uint64_t valueless_ = 0;
    std::uint64_t asNoData_ = 0;
    std::uint64_t notFinite_ = 0;
};

} // namespace ExportLib
