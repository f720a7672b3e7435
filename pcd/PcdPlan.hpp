// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sheaf/Grid.hpp"

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

namespace ExportLib {

/// What ExportPointCloudToPCD makes of a grid, told beforehand by the rules that its Run() goes by. Making a plan changes
/// nothing and makes no array.
struct TIDEWATCH_API PcdPlan {
    /// What a field is to the file.
    enum class Role { Positions, Intensity, None };

    /// A fragment of a field that the exporter meets on the selected skeletons.
    struct Fragment {
        std::string field;
        Role role = Role::None;
        /// The element type that the creator states.
        std::string elementType;
        /// Why its values do not go into the file; empty where they do.
        std::string whyLeftOut;
        /// Elements that the exporter takes; none of what is left out.
        std::uint64_t elements = 0;
        /// Whether all of this is certain. Otherwise the array shows when it is made: it may be of another type than
        /// stated, a uniform lattice instead of points, or of another size.
        bool isCertain = false;
    };

    /// Why the grid becomes no file, for people, as far as it is certain; empty where it becomes one.
    std::string obstacle;
    /// What the field filter lets pass, in the exporter's order.
    std::vector<Fragment> fragments;

    /// Elements that are taken for one role: points before they are thinned, or intensities.
    [[nodiscard]] std::uint64_t elements(Role role) const noexcept;
    /// Everything that the exporter takes.
    [[nodiscard]] std::uint64_t elements() const noexcept;
    /// The memory in bytes that the exporter needs at most for all points of the grid, which it has in memory together
    /// to thin them; arrays that are in memory already count as well.
    [[nodiscard]] std::uint64_t memory() const noexcept;
    /// Whether the file has an intensity and a colour for each point.
    [[nodiscard]] bool isShaded() const noexcept;

    /// The fields whose arrays the exporter may ask for.
    [[nodiscard]] std::set<std::string> fieldsRead() const;

    /// The plan for a grid. `refinementLevel` is the exporter's RefLevel, `useField` answers as its UseThisField() does.
    /// Throws what that does.
    [[nodiscard]] static PcdPlan of(const Sheaf::Grid& grid, int refinementLevel,
                                    const std::function<bool(const std::string&)>& useField);
};

} // namespace ExportLib
