// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ascii/CheckType.hpp"
#include "ascii/TextRounding.hpp"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>

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
            if (rounding_.count() != 0)
                run_->Observer()->valuesChanged(
                    {field_, ConvLib::ValueChange::Rounded, rounding_.count(), total, rounding_.worst()});
        }
    }

private:
    const ConvLib::BasicConverterDefs* run_;
    std::string_view field_;
    bool isPositions_;
    TextRounding<T> rounding_;
    std::uint64_t sinceQuestion_ = 0;
};

} // namespace ExportLib
