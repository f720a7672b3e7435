// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Cacheable.hpp"
#include "anchor/StrongPtr.hpp"
#include "library/view/PackedColumn.hpp"

#include <cstdint>
#include <memory>
#include <span>
#include <typeinfo>

namespace Tidewatch {

/// Collects one component of a field for the candidate points of a view, and packs the chosen ones.
class ViewColumn {
public:
    virtual ~ViewColumn() = default;

    /// Appends the values of these elements of an array. Values are gaps if the array is null, too short or
    /// of another element type.
    virtual void take(const Anchor::StrongPtr<Anchor::Cacheable>& array,
                      std::span<const std::uint32_t> elements) = 0;

    /// The value as a double; NaN for a gap.
    [[nodiscard]] virtual double value(std::size_t point) const = 0;

    /// Packs the values of these points, in this order.
    [[nodiscard]] virtual PackedColumn pack(std::span<const std::uint32_t> points) const = 0;

    /// The memory of the values.
    [[nodiscard]] virtual std::uint64_t bytes() const = 0;

    /// A column for one component of a field of an element type; null if it has no such component.
    [[nodiscard]] static std::unique_ptr<ViewColumn> make(const std::type_info& elementType,
                                                          std::size_t component);

    /// The number of components of an element type; 0 for other types.
    [[nodiscard]] static std::size_t components(const std::type_info& elementType);
};

} // namespace Tidewatch
