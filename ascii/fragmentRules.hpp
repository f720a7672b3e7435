// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ascii/AsciiPlan.hpp"
#include "sheaf/SkeletonMap.hpp"

#include <string>
#include <vector>

namespace ExportLib {

/// Whether the exporter takes a skeleton at its RefLevel.
[[nodiscard]] bool isSelected(const Sheaf::Skeleton& skeleton, const Sheaf::Skeleton& reference,
                              int refinementLevel);

/// Where a fragment goes below the output folder.
struct FragmentPlace {
    /// One in the other, outermost first; empty for the output folder itself.
    std::vector<std::string> folders;
    /// The name of the file without its extension.
    std::string stem;
};

[[nodiscard]] FragmentPlace placeOf(const Sheaf::FieldFragment& stop, bool append, int refinementLevel);

/// What becomes of a fragment of a skeleton that is taken, as far as is known without making arrays.
[[nodiscard]] AsciiPlan::Fragment plannedFragment(const Sheaf::FieldFragment& stop,
                                                  const AsciiSettings& settings);

} // namespace ExportLib
