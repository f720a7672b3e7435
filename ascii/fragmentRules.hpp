// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ascii/AsciiPlan.hpp"
#include "sheaf/SkeletonMap.hpp"

#include <string>
#include <vector>

namespace ExportLib {

/// Whether the exporter selects a skeleton at its RefLevel.
[[nodiscard]] bool isSelected(const Sheaf::Skeleton& skeleton, const Sheaf::Skeleton& reference,
                              int refinementLevel);

/// Where a fragment goes below the output folder.
struct FragmentPlace {
    /// Nested folders, outermost first; empty for the output folder itself.
    std::vector<std::string> folders;
    /// The name of the file without its extension.
    std::string stem;
};

[[nodiscard]] FragmentPlace placeOf(const Sheaf::FieldFragment& item, bool append, int refinementLevel);

/// What becomes of a fragment of a selected skeleton, as far as is known without creating arrays.
[[nodiscard]] AsciiPlan::Fragment plannedFragment(const Sheaf::FieldFragment& item,
                                                  const AsciiSettings& settings);

} // namespace ExportLib
