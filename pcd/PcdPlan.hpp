// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sheaf/Grid.hpp"

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

namespace ExportLib {

/// What ExportPointCloudToPCD will write for a grid, determined in advance by the same rules as in its Run(). Making a
/// plan changes nothing and creates no array.
struct TIDEWATCH_API PcdPlan {
    /// The role of a field in the file.
    enum class Role { Positions, Intensity, None };

    /// A fragment of a field on the selected skeletons.
    struct Fragment {
        std::string field;
        Role role = Role::None;
        /// The element type that the creator states.
        std::string elementType;
        /// Why its values do not go into the file; empty if they do.
        std::string whyLeftOut;
        /// Elements that the exporter uses; 0 for what is left out.
        std::uint64_t elements = 0;
        /// Whether all of this is certain. If not, the array may turn out to be of another type than stated, a uniform
        /// lattice instead of points, or of another size.
        bool isCertain = false;
    };

    /// Why the grid gets no file, as a text for the user, as far as it is certain; empty if it gets one.
    std::string obstacle;
    /// The fragments that the field filter lets pass, in the exporter's order.
    std::vector<Fragment> fragments;

    /// Elements used in one role: points before they are thinned, or intensities.
    [[nodiscard]] std::uint64_t elements(Role role) const noexcept;
    /// All elements that the exporter uses.
    [[nodiscard]] std::uint64_t elements() const noexcept;
    /// The memory in bytes that the exporter needs at most for all points of the grid, which it has in memory together
    /// to thin them; arrays that are in memory already count as well.
    [[nodiscard]] std::uint64_t memory() const noexcept;
    /// Whether the file has an intensity and a colour for each point.
    [[nodiscard]] bool isShaded() const noexcept;

    /// The fields whose arrays the exporter may request.
    [[nodiscard]] std::set<std::string> fieldsRead() const;

    /// The plan for a grid. `refinementLevel` is the exporter's RefLevel, `useField` its UseThisField(). Throws what
    /// `useField` throws.
    [[nodiscard]] static PcdPlan of(const Sheaf::Grid& grid, int refinementLevel,
                                    const std::function<bool(const std::string&)>& useField);
};

} // namespace ExportLib
