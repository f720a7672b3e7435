// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "pcd/PcdPlan.hpp"
#include "sheaf/Grid.hpp"

#include <functional>
#include <string>

namespace ExportLib {

[[nodiscard]] PcdPlan::Role cloudRole(const std::string& field);

/// One fragment of a field of the selected skeletons. The references are valid during the visit.
struct CloudFragment {
    const std::string& field;
    PcdPlan::Role role;
    const Anchor::StrongPtr<Sheaf::CreativeArrayBase, Anchor::Creature>& data;

    /// Whether the elements are said to be of the type that the role takes.
    [[nodiscard]] bool fits() const;
    /// What becomes of it, as far as is known without making the array.
    [[nodiscard]] PcdPlan::Fragment planned() const;
};

/// Visits everything that the exporter collects from: the fragments of the skeletons that are not marked as excluded
/// and, by `refinementLevel`, are the reference (-1) or have that level, of the fields that are wanted. The level is
/// read at each skeleton's field, since a host may set it when it is asked for the field before. False where no
/// selected skeleton holds data.
bool forEachCloudFragment(const Sheaf::Grid& grid, const Sheaf::Skeleton& reference,
                          const int& refinementLevel, const std::function<bool(const std::string&)>& useField,
                          const std::function<void(const CloudFragment&)>& visit);

} // namespace ExportLib
