// SPDX-License-Identifier: Apache-2.0
#include "library/points/GridBuilder.hpp"

#include "library/report/Wording.hpp"

#include <set>

#include <fmt/format.h>

namespace Tidewatch {

void GridBuilder::build(const Takes& takes, const Fill& fill) const {
    to_.setStatement(from_.statement());
    for (const std::string& name : from_.chartNames()) {
        if (const auto chart = from_.findChart(name))
            to_.declareCartesianChart(name)->setReferenceSystem(chart->referenceSystem());
    }
    from_.skeletons().forEach([&](const Sheaf::Skeleton& skeleton) {
        if (takes(skeleton))
            to_.skeletons().make(skeleton.key(), skeleton.exclusionMark());
        return true;
    });
    // After all skeletons: one may be the space of another's representation.
    from_.skeletons().forEach([&](const Sheaf::Skeleton& skeleton) {
        const auto copy = to_.skeletons().find(skeleton.key());
        if (!copy)
            return true;
        skeleton.representations().forEach(
            [&](const Sheaf::BaseSpace& base, const Sheaf::Representation& from) {
                if (const auto place = space(base))
                    fill(skeleton, from, *copy->representations().make(place));
                return true;
            });
        return true;
    });
}

Anchor::StrongPtr<Sheaf::BaseSpace> GridBuilder::space(const Sheaf::BaseSpace& from) const {
    if (const auto* const chart = dynamic_cast<const Sheaf::CartesianChart*>(&from))
        return to_.declareCartesianChart(chart->name());
    if (const auto* const skeleton = dynamic_cast<const Sheaf::Skeleton*>(&from))
        return to_.skeletons().find(skeleton->key());
    return nullptr;
}

Anchor::StrongPtr<Sheaf::FragmentID>
GridBuilder::fragment(const Anchor::StrongPtr<Sheaf::FragmentID>& from) const {
    if (!from)
        return nullptr;
    auto fragment = to_.makeFragment(from->name());
    fragment->overlapLow = from->overlapLow;
    fragment->overlapHigh = from->overlapHigh;
    return fragment;
}

Anchor::StrongPtr<Sheaf::Field> GridBuilder::addField(Sheaf::Representation& to, const std::string& name,
                                                      const Sheaf::Field& from) {
    auto field = to.makeField(name, from.getElementType());
    if (from.encoding())
        field->setEncoding(*from.encoding());
    return field;
}

void copyData(const Sheaf::Grid& from, Sheaf::Grid& to) {
    const GridBuilder builder(from, to);
    builder.build(
        [](const Sheaf::Skeleton&) { return true; },
        [&](const Sheaf::Skeleton&, const Sheaf::Representation& fields, Sheaf::Representation& copies) {
            fields.forEachField([&](const Sheaf::FieldID& id, const Sheaf::Field& field) {
                const auto copy = GridBuilder::addField(copies, id.name(), field);
                field.forEachFragment([&](const auto& fragment, const auto& data) {
                    copy->addFragment(builder.fragment(fragment), data);
                    return true;
                });
                return true;
            });
        });
}

Anchor::StrongPtr<Sheaf::Bundle>
rebuilt(const Sheaf::Bundle& from, const Selection& selection,
        const std::function<void(double, const Sheaf::Grid&, Sheaf::Grid&)>& build) {
    std::set<const Sheaf::Grid*> selected;
    selection.forEachGrid(
        from, [&](double, const std::string&, const Sheaf::Grid& grid) { selected.insert(&grid); });
    auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    const Selection all(Filters{});
    all.forEachGrid(from, [&](double time, const std::string& name, const Sheaf::Grid& grid) {
        const auto copy = bundle->makeSlice(time)->makeGrid(name, grid.origin());
        if (selected.contains(&grid))
            build(time, grid, *copy);
        else
            copyData(grid, *copy);
    });
    return bundle;
}

std::string originAndGrid(const Sheaf::Grid& grid, double time) {
    const std::string text = gridAtTime(grid.name(), time);
    return grid.origin().empty() ? text : fmt::format("{}: {}", grid.origin(), text);
}

std::optional<std::string> nameOf(const Anchor::StrongPtr<Sheaf::FragmentID>& fragment) {
    return fragment ? std::optional(fragment->name()) : std::nullopt;
}

} // namespace Tidewatch
