// SPDX-License-Identifier: Apache-2.0
#include "library/ascii/AsciiPlan.hpp"

#include "ascii/ExportPointCloudToASCII.hpp"
#include "library/report/Wording.hpp"
#include "sheaf/ElementTypes.hpp"

#include <set>
#include <type_traits>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

namespace fs = std::filesystem;

const std::string positionsName = "Positions";

/// The positions of a fragment where they are a lattice. All readers hold those in memory.
Anchor::StrongPtr<Sheaf::UniformCartesianArray> latticeOf(const Sheaf::FieldFragment& at) {
    const auto& field = at.representation.Positions();
    const auto positions = field ? field->getCreator(at.fragment) : nullptr;
    return positions ? Anchor::dynamicCast<Sheaf::UniformCartesianArray>(positions->available()) : nullptr;
}

/// As the exporter puts its paths together (docs/ascii.md).
fs::path pathOf(const Sheaf::FieldFragment& at, const AsciiSettings& settings) {
    const std::string& field = at.id.name();
    fs::path path;
    if (!settings.append)
        path /= field;
    if (settings.refinementLevel != -1)
        path /= fmt::format("Skeleton{}", at.skeleton.refinementLevel());
    if (settings.append)
        return path / field;
    return path / (at.fragment ? at.fragment->name() : std::string("Unfragmented"));
}

std::string whyNothing(const AsciiPlan& plan, const AsciiSettings& settings) {
    bool hasSelected = false;
    std::set<std::string> reasons;
    for (const AsciiStop& stop : plan.stops) {
        if (!stop.isSelected)
            continue;
        hasSelected = true;
        if (stop.isWritten())
            return {};
        if (const std::string reason = stop.whyLeftOut(); !reason.empty())
            reasons.insert(fmt::format("{} is left out: {}", stop.field, reason));
    }
    if (!reasons.empty())
        return joined({reasons.begin(), reasons.end()}, "; ");
    if (hasSelected)
        return "it has no numbers on its lattice to write";
    if (plan.stops.empty())
        return "it has no data in the fields that the filter lets pass";
    return settings.refinementLevel < 0
               ? "its vertices are marked as not to be exported, or hold no data"
               : fmt::format("it has nothing to export at refinement level {}", settings.refinementLevel);
}

} // namespace

bool AsciiStop::isNumber() const {
    bool is = false;
    Sheaf::visitElementType(type(),
                            [&](auto tag) { is = std::is_arithmetic_v<typename decltype(tag)::type>; });
    return is;
}

std::string AsciiStop::whyLeftOut() const {
    if (!ExportLib::ExportPointCloudToASCII::HasWriter(type()))
        return fmt::format("there is no writer for {}", Sheaf::elementTypeName(type()));
    if (!lattice || (!isNumber() && field == positionsName))
        return {};
    if (!isNumber())
        return fmt::format("only numbers can be written on a lattice, not {}",
                           Sheaf::elementTypeName(type()));
    if (const std::uint64_t layers = lattice->extents()[2]; layers != 1)
        return fmt::format("a grid file holds one layer, and its lattice has {}", layers);
    return {};
}

bool AsciiStop::isWritten() const {
    return isSelected && whyLeftOut().empty() && (!lattice || isNumber());
}

std::optional<fs::path> AsciiStop::file(const AsciiSettings& settings) const {
    if (!isWritten() || (lattice && settings.tileSuffix))
        return {};
    fs::path file = path;
    if (lattice)
        return file += ".grd";
    if (file.stem() == positionsName)
        file.replace_filename("XYZ_Coordinates");
    return file += ".asc";
}

AsciiPlan AsciiPlan::of(const Sheaf::Grid& grid, Selection& selection, const AsciiSettings& settings) {
    AsciiPlan plan;
    // The conditions, the order and the bound are those that the exporter states.
    const auto reference = grid.findHighestHomogenousVertexRefinement(100000000);
    if (!reference) {
        plan.obstacle = "it has no vertices of one refinement in all directions";
        return plan;
    }
    const auto representation = reference->representations()(grid.findCartesianChart(""));
    if (!representation || !representation->Positions()) {
        plan.obstacle = "it has no Positions in its default chart";
        return plan;
    }
    const auto isSelected = [&](const Sheaf::Skeleton& skeleton) {
        if (skeleton.exclusionMark() != 0)
            return false;
        if (settings.refinementLevel == -1)
            return &skeleton == reference.get();
        return settings.refinementLevel == -2 || skeleton.refinementLevel() == settings.refinementLevel;
    };
    grid.skeletons().iterate_all([&](const Sheaf::FieldFragment& at) {
        if (!selection.UseThisField(at.id.name()))
            return true;
        const auto extents = at.data->extents();
        plan.stops.push_back({at.id.name(), at.fragment, at.data,
                              extents ? extents->elementCount().value_or(0) : 0, &at.representation,
                              latticeOf(at), isSelected(at.skeleton), at.skeleton.exclusionMark() != 0,
                              pathOf(at, settings)});
        return true;
    });
    plan.obstacle = whyNothing(plan, settings);
    return plan;
}

} // namespace Tidewatch
