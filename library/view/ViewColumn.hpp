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

/// Collects one component of a field for the points of a view that come into question, and packs those that are chosen.
class ViewColumn {
public:
    virtual ~ViewColumn() = default;

    /// Appends the values of these elements of an array. An array of another element type, one that is too short, or none
    /// at all: gaps.
    virtual void take(const Anchor::StrongPtr<Anchor::Cacheable>& array,
                      std::span<const std::uint32_t> elements) = 0;

    /// The value as a double; not-a-number for a gap.
    [[nodiscard]] virtual double value(std::size_t point) const = 0;

    /// Packs the values of these points, in this order.
    [[nodiscard]] virtual PackedColumn pack(std::span<const std::uint32_t> points) const = 0;

    /// A column of component `component` of a field of that element type; null where it has no such component.
    [[nodiscard]] static std::unique_ptr<ViewColumn> make(const std::type_info& elementType,
                                                          std::size_t component);

    /// Components of an element type; 0 for a type that is none.
    [[nodiscard]] static std::size_t components(const std::type_info& elementType);
};

} // namespace Tidewatch
