// SPDX-License-Identifier: Apache-2.0
#include "ascii/AsciiPlan.hpp"

#include "ascii/CheckType.hpp"
#include "ascii/GridFragment.hpp"
#include "ascii/elementText.hpp"
#include "ascii/fragmentRules.hpp"
#include "ascii/writeElements.hpp"
#include "convlib/ReferenceVertices.hpp"
#include "sheaf/ElementTypes.hpp"

#include <set>

namespace ExportLib {

namespace {

namespace fs = std::filesystem;

using Form = AsciiPlan::Form;
using Fragment = AsciiPlan::Fragment;

bool isNumber(const std::type_info& type) {
    bool is = false;
    Sheaf::visitElementType(type, [&](auto tag) { is = Scalar<typename decltype(tag)::type>; });
    return is;
}

std::string nameOf(const std::type_info& type) {
    return std::string(Sheaf::elementTypeName(type));
}

AsciiPlan::CellTypes cellTypesFor(const Sheaf::FieldFragment& item, const AsciiSettings& settings) {
    const auto& field = item.representation.findField(settings.filterField.c_str());
    if (!field)
        return AsciiPlan::CellTypes::NoField;
    return field->getCreator(item.fragment) ? AsciiPlan::CellTypes::Stated : AsciiPlan::CellTypes::NoFragment;
}

/// Plans the file of a fragment on a uniform lattice.
void planGrid(Fragment& fragment, const fs::path& path, const Sheaf::FieldFragment& item,
              const AsciiSettings& settings, const Sheaf::UniformCartesianArray& lattice) {
    const std::type_info& type = item.field.getElementType();
    if (!isNumber(type)) {
        if (fragment.field != positionsName)
            fragment.whyLeftOut = "only numbers can be written on a lattice, not " + nameOf(type);
        return;
    }
    Geom::BoundingBox box;
    lattice.expand(box);
    const auto grid = GridFragment::of(lattice, box, item.fragment);
    if (!grid) {
        fragment.whyLeftOut =
            "a grid file holds one layer, and its lattice has " + std::to_string(lattice.extents()[2]);
        return;
    }
    fragment.form = Form::Grid;
    fragment.file = grid->path(path, settings.tileSuffix);
    fragment.lattice = grid->described();
    fragment.lattice->asCharacters = type == typeid(unsigned char) && settings.precision != 0;
    fragment.cellTypes = cellTypesFor(item, settings);
}

std::string whyNothing(const AsciiPlan& plan, const AsciiSettings& settings) {
    bool hasSelected = false;
    std::set<std::string> reasons;
    for (const Fragment& fragment : plan.fragments) {
        if (!fragment.isSelected)
            continue;
        hasSelected = true;
        if (fragment.form != Form::None || !fragment.isCertain)
            return {};
        if (!fragment.whyLeftOut.empty())
            reasons.insert(fragment.field + " is left out: " + fragment.whyLeftOut);
    }
    std::string text;
    for (const std::string& reason : reasons)
        text += (text.empty() ? "" : "; ") + reason;
    if (!text.empty())
        return text;
    if (hasSelected)
        return "it has no numbers on its lattice to write";
    if (plan.fragments.empty())
        return "it has no data in the fields that the filter lets pass";
    return settings.refinementLevel < 0
               ? "its vertices are marked as not to be exported, or hold no data"
               : "it has nothing to export at refinement level " + std::to_string(settings.refinementLevel);
}

} // namespace

bool isSelected(const Sheaf::Skeleton& skeleton, const Sheaf::Skeleton& reference, int refinementLevel) {
    if (skeleton.exclusionMark() != 0)
        return false;
    switch (refinementLevel) {
    case -1:
        return &skeleton == &reference;
    case -2:
        return true;
    default:
        return skeleton.refinementLevel() == refinementLevel;
    }
}

FragmentPlace placeOf(const Sheaf::FieldFragment& item, bool append, int refinementLevel) {
    FragmentPlace place;
    if (!append)
        place.folders.push_back(item.id.name());
    if (refinementLevel != -1)
        place.folders.push_back("Skeleton" + std::to_string(item.skeleton.refinementLevel()));
    place.stem = append          ? item.id.name()
                 : item.fragment ? item.fragment->name()
                                 : std::string("Unfragmented");
    return place;
}

Fragment plannedFragment(const Sheaf::FieldFragment& item, const AsciiSettings& settings) {
    Fragment fragment;
    fragment.field = item.id.name();
    fragment.fragment = item.fragment;
    fragment.isSelected = true;
    const std::type_info& type = item.field.getElementType();
    if (!AsciiPlan::hasWriter(type)) {
        fragment.whyLeftOut = "there is no writer for " + nameOf(type);
        return fragment;
    }
    const FragmentPlace place = placeOf(item, settings.append, settings.refinementLevel);
    fs::path path;
    for (const std::string& folder : place.folders)
        path /= folder;
    path /= place.stem;

    const auto positions = positionsOf(item.representation, item.fragment);
    const auto array = positions ? positions->available() : nullptr;
    fragment.isCertain = !positions || array;
    if (const auto lattice = Anchor::dynamicCast<Sheaf::UniformCartesianArray>(array)) {
        planGrid(fragment, path, item, settings, *lattice);
    } else if (item.data->elementType() != type) {
        fragment.whyLeftOut = "its array is not of the field's type";
    } else {
        fragment.form = Form::List;
        fragment.file = elementsPath(path);
    }
    if (fragment.form != Form::None) {
        const auto extents = item.data->extents();
        fragment.elements = extents ? extents->elementCount().value_or(0) : 0;
    }
    return fragment;
}

bool AsciiPlan::hasWriter(const std::type_info& elementType) noexcept {
#define TIDEWATCH_ROW(TYPE)                                                                                  \
    if (elementType == typeid(TYPE))                                                                         \
        return true;
    TIDEWATCH_ASCII_ELEMENT_TYPES(TIDEWATCH_ROW)
#undef TIDEWATCH_ROW
    return false;
}

std::set<std::string> AsciiPlan::fieldsRead() const {
    // Positions decide which fragments are lattices, whatever is written; the cell types decide which cells are
    // written.
    std::set<std::string> fields{"Positions"};
    for (const Fragment& fragment : fragments) {
        if (fragment.form == Form::None && fragment.isCertain)
            continue;
        fields.insert(fragment.field);
        if (fragment.form == Form::Grid || !fragment.isCertain)
            fields.insert(cellTypeField);
    }
    return fields;
}

std::uint64_t AsciiPlan::elements() const noexcept {
    std::uint64_t sum = 0;
    for (const Fragment& fragment : fragments)
        sum += fragment.elements;
    return sum;
}

AsciiPlan AsciiPlan::of(const Sheaf::Grid& grid, const AsciiSettings& settings,
                        const std::function<bool(const std::string&)>& useField) {
    AsciiPlan plan;
    plan.cellTypeField = settings.filterField;
    const ConvLib::ReferenceVertices reference = ConvLib::findReferenceVertices(grid);
    if (!reference.representation) {
        plan.obstacle = ConvLib::whyNoReference(reference);
        return plan;
    }
    grid.skeletons().iterate_all([&](const Sheaf::FieldFragment& item) {
        if (!useField(item.id.name()))
            return true;
        if (isSelected(item.skeleton, *reference.skeleton, settings.refinementLevel)) {
            plan.fragments.push_back(plannedFragment(item, settings));
        } else {
            Fragment skipped;
            skipped.field = item.id.name();
            skipped.fragment = item.fragment;
            skipped.isExcluded = item.skeleton.exclusionMark() != 0;
            plan.fragments.push_back(std::move(skipped));
        }
        return true;
    });
    plan.obstacle = whyNothing(plan, settings);
    return plan;
}

} // namespace ExportLib
