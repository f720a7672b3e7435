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

/// A box in coordinate units, x first, that holds its lower faces and not its upper ones, so that boxes side by side
/// share no point.
struct PointBox {
    Geom::PhysicalSpace::point lower{0, 0, -std::numeric_limits<double>::infinity()};
    Geom::PhysicalSpace::point upper{0, 0, std::numeric_limits<double>::infinity()};

    [[nodiscard]] bool contains(const Geom::PhysicalSpace::point& point) const noexcept {
        return point.x >= lower.x && point.x < upper.x && point.y >= lower.y && point.y < upper.y &&
               point.z >= lower.z && point.z < upper.z;
    }
};

/// Which returns of a pulse to choose: those that any of the members admits.
struct ReturnChoice {
    bool first = false;
    bool last = false;
    /// Returns that are the only one of their pulse.
    bool only = false;
    std::set<std::uint8_t> numbers = {};

    /// For the number of a return, and how many its pulse has.
    [[nodiscard]] bool contains(unsigned number, unsigned ofPulse) const noexcept {
        constexpr unsigned largest = std::numeric_limits<std::uint8_t>::max();
        return (first && number == 1) || (last && number <= largest && number == ofPulse) ||
               (only && ofPulse == 1) ||
               (number <= largest && numbers.contains(static_cast<std::uint8_t>(number)));
    }
};

/// Which points to choose: those that every member admits.
struct TIDEWATCH_API PointChoice {
    /// Values of the field Classification; empty admits all.
    std::set<std::uint8_t> classes = {};
    std::optional<ReturnChoice> returns = {};
    /// Of lattices, the rows and columns whose cell centres are inside, whatever their heights.
    std::optional<PointBox> box = {};

    [[nodiscard]] bool isAll() const noexcept { return classes.empty() && !returns && !box; }

    /// The fields whose arrays decide.
    [[nodiscard]] std::set<std::string> fieldsRead() const;

    static constexpr std::string_view classField = "Classification";
    static constexpr std::string_view returnField = "ReturnNumber";
    static constexpr std::string_view returnsField = "NumberOfReturns";
};

} // namespace Tidewatch
