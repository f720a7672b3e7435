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

    /// Whether the stated element type is the one that the role requires.
    [[nodiscard]] bool fits() const;
    /// What becomes of it, as far as is known without creating the array.
    [[nodiscard]] PcdPlan::Fragment planned() const;
};

/// Visits everything from which the exporter collects: the selected fields' fragments on all skeletons that are not
/// marked as excluded and, by `refinementLevel`, are the reference (-1) or have that level. The level is read again for
/// each field, because a host may change it when it is asked about the field before. False if no selected skeleton has
/// data.
bool forEachCloudFragment(const Sheaf::Grid& grid, const Sheaf::Skeleton& reference,
                          const int& refinementLevel, const std::function<bool(const std::string&)>& useField,
                          const std::function<void(const CloudFragment&)>& visit);

} // namespace ExportLib
