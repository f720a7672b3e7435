// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"
#include "geom/PhysicalSpace.hpp"

#include <cstdint>
#include <limits>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace Tidewatch {

/// A box in coordinate units that includes its lower faces and excludes its upper ones, so that adjacent
/// boxes share no point.
struct PointBox {
    Geom::PhysicalSpace::point lower{0, 0, -std::numeric_limits<double>::infinity()};
    Geom::PhysicalSpace::point upper{0, 0, std::numeric_limits<double>::infinity()};

    [[nodiscard]] bool contains(const Geom::PhysicalSpace::point& point) const noexcept {
        return point.x >= lower.x && point.x < upper.x && point.y >= lower.y && point.y < upper.y &&
               point.z >= lower.z && point.z < upper.z;
    }
};

/// Which returns of a pulse to choose: those that match any of the members.
struct ReturnChoice {
    bool first = false;
    bool last = false;
    /// Returns that are the only one of their pulse.
    bool only = false;
    std::set<std::uint8_t> numbers = {};

    /// Whether a return is chosen, from its number and the number of returns of its pulse.
    [[nodiscard]] bool contains(unsigned number, unsigned ofPulse) const noexcept {
        constexpr unsigned largest = std::numeric_limits<std::uint8_t>::max();
        return (first && number == 1) || (last && number <= largest && number == ofPulse) ||
               (only && ofPulse == 1) ||
               (number <= largest && numbers.contains(static_cast<std::uint8_t>(number)));
    }
};

/// Which points to choose: those that match every member.
struct TIDEWATCH_API PointChoice {
    /// Values of the field Classification; empty matches all.
    std::set<std::uint8_t> classes = {};
    std::optional<ReturnChoice> returns = {};
    /// For lattices: the rows and columns whose cell centres are inside, whatever their heights.
    std::optional<PointBox> box = {};

    [[nodiscard]] bool isAll() const noexcept { return classes.empty() && !returns && !box; }

    /// The fields needed for the choice.
    [[nodiscard]] std::set<std::string> fieldsRead() const;

    static constexpr std::string_view classField = "Classification";
    static constexpr std::string_view returnField = "ReturnNumber";
    static constexpr std::string_view returnsField = "NumberOfReturns";
};

} // namespace Tidewatch
