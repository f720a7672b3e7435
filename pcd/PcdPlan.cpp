// SPDX-License-Identifier: Apache-2.0
#include "pcd/PcdPlan.hpp"

#include "convlib/ReferenceVertices.hpp"
#include "pcd/cloudFragments.hpp"
#include "sheaf/ElementTypes.hpp"

#include <algorithm>
#include <typeinfo>

namespace ExportLib {

namespace {

using Fragment = PcdPlan::Fragment;
using Role = PcdPlan::Role;

std::string whyNoPoints(const PcdPlan& plan, const std::function<bool(const std::string&)>& useField) {
    if (plan.elements(Role::Positions) != 0)
        return {};
    for (const Fragment& fragment : plan.fragments) {
        if (fragment.role == Role::Positions && !fragment.isCertain)
            return {};
    }
    for (const Fragment& fragment : plan.fragments) {
        // The creator stated suitable data, but the array is unsuitable.
        if (fragment.role == Role::Positions && fragment.isCertain && !fragment.whyLeftOut.empty() &&
            fragment.elementType == Sheaf::elementTypeName(typeid(Geom::PhysicalSpace::point)))
            return fragment.whyLeftOut;
    }
    return useField("Positions") ? "it has no position stored as a point"
                                 : "the field filter leaves out its Positions";
}

} // namespace

std::uint64_t PcdPlan::elements(Role role) const noexcept {
    std::uint64_t sum = 0;
    for (const Fragment& fragment : fragments)
        sum += fragment.role == role ? fragment.elements : 0;
    return sum;
}

std::uint64_t PcdPlan::elements() const noexcept {
    return elements(Role::Positions) + elements(Role::Intensity);
}

std::uint64_t PcdPlan::memory() const noexcept {
    // Positions and intensities; then their cells with the numbers of the points (CellSelector), which become the
    // numbers of those that are kept.
    // bench-pcd measures it.
    constexpr std::uint64_t mostNumbered = std::uint64_t{1} << 32;
    const std::uint64_t most = std::max(elements(Role::Positions), elements(Role::Intensity));
    return most * (most <= mostNumbered ? 48 : 64);
}

std::set<std::string> PcdPlan::fieldsRead() const {
    std::set<std::string> fields;
    for (const Fragment& fragment : fragments) {
        if (fragment.role != Role::None)
            fields.insert(fragment.field);
    }
    return fields;
}

bool PcdPlan::isShaded() const noexcept {
    return elements(Role::Positions) == elements(Role::Intensity);
}

PcdPlan PcdPlan::of(const Sheaf::Grid& grid, int refinementLevel,
                    const std::function<bool(const std::string&)>& useField) {
    PcdPlan plan;
    const ConvLib::ReferenceVertices reference = ConvLib::findReferenceVertices(grid);
    if (!reference.representation) {
        plan.obstacle = ConvLib::whyNoReference(reference);
        return plan;
    }
    const bool hasData =
        forEachCloudFragment(grid, *reference.skeleton, refinementLevel, useField,
                             [&](const CloudFragment& met) { plan.fragments.push_back(met.planned()); });
    if (hasData)
        plan.obstacle = whyNoPoints(plan, useField);
    else if (refinementLevel == -1)
        plan.obstacle = "its vertices are marked as not to be exported, or hold no data";
    else
        plan.obstacle = "it has nothing to export at refinement level " + std::to_string(refinementLevel);
    return plan;
}

} // namespace ExportLib
