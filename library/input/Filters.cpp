// SPDX-License-Identifier: Apache-2.0
#include "library/input/Filters.hpp"

#include "library/report/Wording.hpp"

#include <algorithm>
#include <set>

#include <fmt/format.h>

namespace Tidewatch {

void Filters::applyTo(ConvLib::BasicConverterDefs& converter) const {
    converter.TimeFilter = times;
    converter.GridFilter = grids;
    converter.FieldFilter = fields;
}

Selection::Selection(const Filters& filters) {
    filters.applyTo(*this);
}

Selection::~Selection() = default;

bool Selection::Run() {
    return false;
}

void Selection::forEachReference(
    const Sheaf::Bundle& bundle,
    const std::function<void(double, const Anchor::StrongPtr<Sheaf::Grid>&)>& visit) const {
    for (const auto& [time, weakSlice] : bundle.slices()) {
        const auto slice = weakSlice.lock();
        if (!slice || !UseThisTime(time))
            continue;
        for (const auto& [name, weakGrid] : slice->grids()) {
            const auto grid = weakGrid.lock();
            if (grid && UseThisGrid(name))
                visit(time, grid);
        }
    }
}

void Selection::forEachGrid(
    const Sheaf::Bundle& bundle,
    const std::function<void(double, const std::string&, const Sheaf::Grid&)>& visit) const {
    forEachReference(bundle, [&](double time, const Anchor::StrongPtr<Sheaf::Grid>& grid) {
        visit(time, grid->name(), *grid);
    });
}

namespace {

/// "no grid matches --grid 'x' (case counts); there are: a, b and 3 more".
std::string noMatch(const std::string& what, const std::string& option, const std::set<std::string>& names) {
    return fmt::format("no {} matches {}{}; there are: {}", what, option,
                       what == "time" ? "" : " (case counts)", listed({names.begin(), names.end()}));
}

} // namespace

std::vector<std::string> unmatchedFilters(const Filters& filters,
                                          std::span<const Anchor::StrongPtr<Sheaf::Bundle>> bundles,
                                          std::span<const NamedField> named) {
    std::set<double> times;
    std::set<std::string> grids;
    std::set<std::string> fields;
    const Selection all(Filters{});
    const Selection selected(Filters{filters.times, filters.grids, {}});
    for (const auto& bundle : bundles) {
        all.forEachGrid(*bundle, [&](double time, const std::string& name, const Sheaf::Grid&) {
            times.insert(time);
            grids.insert(name);
        });
        selected.forEachGrid(*bundle, [&](double, const std::string&, const Sheaf::Grid& grid) {
            grid.skeletons().iterate_all([&](const Sheaf::FieldFragment& item) {
                fields.insert(item.id.name());
                return true;
            });
        });
    }
    std::vector<std::string> texts;
    if (grids.empty())
        return texts;
    for (const auto& range : filters.times) {
        if (std::any_of(times.begin(), times.end(),
                        [&](double time) { return range.first <= time && time <= range.last; }))
            continue;
        std::set<std::string> present;
        for (const double time : times)
            present.insert(shortestText(time));
        const std::string first = shortestText(range.first);
        texts.push_back(
            noMatch("time",
                    fmt::format("--time '{}{}'", first,
                                range.first == range.last ? std::string() : ":" + shortestText(range.last)),
                    present));
    }
    for (const std::string& glob : filters.grids) {
        Selection one(Filters{{}, {glob}, {}});
        if (std::none_of(grids.begin(), grids.end(), [&](const auto& name) { return one.UseThisGrid(name); }))
            texts.push_back(noMatch("grid", fmt::format("--grid '{}'", glob), grids));
    }
    for (const std::string& glob : filters.fields) {
        if (fields.empty())
            break;
        Selection one(Filters{{}, {}, {glob}});
        if (std::none_of(fields.begin(), fields.end(),
                         [&](const auto& name) { return one.UseThisField(name); }))
            texts.push_back(noMatch("field", fmt::format("--field '{}'", glob), fields));
    }
    for (const NamedField& name : named) {
        if (!fields.empty() && !fields.contains(name.field))
            texts.push_back(noMatch("field", name.option, fields));
    }
    return texts;
}

} // namespace Tidewatch
