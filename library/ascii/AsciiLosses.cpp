// SPDX-License-Identifier: Apache-2.0
#include "library/ascii/AsciiLosses.hpp"

#include "library/report/Wording.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

using Geom::PhysicalSpace;

/// A length as the header of a grid has it: with three decimals.
double asWritten(double length) {
    const double rounded = std::nearbyint(length * 1000) / 1000;
    return std::isfinite(rounded) ? rounded : length;
}

class Finder {
public:
    Finder(const ExportedGrid& exported, const AsciiWalk::Grid& grid, const AsciiSettings& settings,
           std::span<const ConvLib::WrittenFile> record, Losses& losses)
        : grid_(grid),
          settings_(settings),
          record_(record),
          losses_(losses),
          where_(gridAtTime(exported.name, exported.time)) {}

    void run() {
        findFields();
        findEmptyFiles();
        findSharedFiles();
        findLattices();
        findCoordinateRounding();
        findValues();
    }

private:
    void findFields();
    void findUntakenFields();
    void findEmptyFiles();
    void findSharedFiles();
    void findLattices();
    void findLatticeRounding(const AsciiStop& stop);
    void findCoordinateRounding();
    void findValues();

    /// How many items a file got from one stop; records of files that are added to sum up.
    [[nodiscard]] std::uint64_t itemsOf(const AsciiWalk::Written& written) const;
    [[nodiscard]] std::string whyEmpty(const AsciiStop& stop) const;

    template <class... Arguments>
    void add(std::string_view kind, fmt::format_string<Arguments...> text, Arguments&&... arguments) {
        losses_.addOf(where_, kind, fmt::format(text, std::forward<Arguments>(arguments)...));
    }

    const AsciiWalk::Grid& grid_;
    const AsciiSettings& settings_;
    std::span<const ConvLib::WrittenFile> record_;
    Losses& losses_;
    std::string where_;
};

std::uint64_t Finder::itemsOf(const AsciiWalk::Written& written) const {
    const ConvLib::WrittenFile& file = record_[written.file];
    if (!settings_.append)
        return file.items;
    for (std::size_t before = written.file; before-- > 0;) {
        if (record_[before].path == file.path)
            return file.items - record_[before].items;
    }
    return file.items;
}

void Finder::findFields() {
    std::set<std::pair<std::string, std::string>> leftOut;
    for (const AsciiStop& stop : grid_.plan.stops) {
        if (const std::string reason = stop.isSelected ? stop.whyLeftOut() : std::string(); !reason.empty())
            leftOut.emplace(stop.field, reason);
    }
    for (const auto& [field, reason] : leftOut)
        add("fields", "{} is left out: {}", field, reason);
    if (settings_.refinementLevel == -1)
        findUntakenFields();
}

/// A level that is asked for is a filter; that the highest one stands for it has to be told.
void Finder::findUntakenFields() {
    std::set<std::string> taken;
    std::set<std::string> untaken;
    for (const AsciiStop& stop : grid_.plan.stops) {
        if (!stop.isExcluded)
            (stop.isSelected ? taken : untaken).insert(stop.field);
    }
    for (const std::string& field : untaken) {
        if (!taken.contains(field))
            add("fields",
                "{} is left out: it lies on other skeletons than the vertices of the highest level; "
                "--ref-level -2 takes all",
                field);
    }
}

std::string Finder::whyEmpty(const AsciiStop& stop) const {
    if (!stop.lattice)
        return "its array does not have the elements that were stated";
    const auto& types = stop.representation->findField(settings_.filterField.c_str());
    if (!types)
        return fmt::format("there is no field \"{}\" of cell types; --filter-field names another",
                           settings_.filterField);
    if (!types->getCreator(stop.fragment))
        return fmt::format("the field \"{}\" has no cell types for it", settings_.filterField);
    return fmt::format(
        "its values, its overlaps or the cell types of the field \"{}\" do not fit the lattice",
        settings_.filterField);
}

void Finder::findEmptyFiles() {
    std::map<std::pair<std::string, std::string>, std::size_t> emptyOf;
    for (const AsciiWalk::Written& written : grid_.written) {
        if (written.stop->elements != 0 && itemsOf(written) == 0)
            ++emptyOf[{written.stop->field, whyEmpty(*written.stop)}];
    }
    for (const auto& [which, count] : emptyOf)
        add("empty", "{}: {} without a value: {}", which.first, counted(count, "fragment"), which.second);
}

/// Skeletons of one level, charts and fragments may come to one name.
void Finder::findSharedFiles() {
    std::map<std::string, std::size_t> timesWritten;
    for (const AsciiWalk::Written& written : grid_.written)
        ++timesWritten[record_[written.file].path];
    std::size_t overwritten = 0;
    std::size_t chained = 0;
    for (const AsciiWalk::Written& written : grid_.written) {
        const auto entry = timesWritten.find(record_[written.file].path);
        if (entry == timesWritten.end())
            continue;
        if (entry->second > 1 && !settings_.append)
            ++overwritten;
        if (entry->second > 1 && settings_.append && written.stop->lattice)
            ++chained;
        timesWritten.erase(entry);
    }
    if (overwritten != 0)
        add("overwritten",
            "{} of several skeletons or charts came to one name, of which the last is kept; "
            "--ref-level keeps levels apart",
            counted(overwritten, "file"));
    if (chained != 0)
        add("joined",
            "{} with the grids of several fragments one behind the other, of which programs read the first",
            counted(chained, "file"));
}

void Finder::findLattices() {
    std::set<const Sheaf::UniformCartesianArray*> known;
    std::uint64_t shift = 0;
    for (const AsciiWalk::Written& written : grid_.written) {
        const AsciiStop& stop = *written.stop;
        if (!stop.lattice || itemsOf(written) == 0 || !known.insert(stop.lattice.get()).second)
            continue;
        findLatticeRounding(stop);
        if (stop.fragment && stop.fragment->overlapLow)
            shift = std::max(shift, (*stop.fragment->overlapLow)[1]);
    }
    if (shift != 0)
        add("shift",
            "the values of fragments that overlap their southern neighbour stand up to {} too far north",
            counted(shift, "row"));
}

void Finder::findLatticeRounding(const AsciiStop& stop) {
    const Sheaf::UniformCartesianArray& lattice = *stop.lattice;
    const double cell = asWritten(lattice.spacing().x);
    // The cell farthest from the corner, from which all of them are counted.
    const auto farthest = [&](double corner, double spacing, std::uint64_t count) {
        const auto last = static_cast<double>(count > 0 ? count - 1 : 0);
        const double loss = std::max(std::abs(asWritten(corner) - corner),
                                     std::abs(asWritten(corner) + last * cell - (corner + last * spacing)));
        const double noise = 8 * std::numeric_limits<double>::epsilon() *
                             std::max(std::abs(corner), std::abs(corner + last * spacing));
        return loss > noise ? loss : 0;
    };
    const double loss = std::max(farthest(lattice.origin().x, lattice.spacing().x, lattice.extents()[0]),
                                 farthest(lattice.origin().y, lattice.spacing().y, lattice.extents()[1]));
    if (loss == 0)
        return;
    if (asWritten(lattice.spacing().y) != cell)
        add("rounding",
            "cells of {} by {} are written as squares of {:.3f}: coordinates are off by up to {:.2g}",
            coordinateText(lattice.spacing().x), shortestText(lattice.spacing().y), cell, loss);
    else
        add("rounding",
            "the corner and the cell size of {} are written with three decimals: coordinates are off by up "
            "to "
            "{:.2g}",
            coordinateText(lattice.spacing().x), loss);
}

void Finder::findCoordinateRounding() {
    constexpr double textStep = 1e-6;
    const PhysicalSpace::vector stated = grid_.inputStep.value_or(PhysicalSpace::vector{});
    const double statedSteps[] = {stated.x, stated.y, stated.z};
    double finest = textStep;
    for (std::size_t number = 0; number < CoordinateSurvey::axes; ++number) {
        if (const auto axis = grid_.survey.axis(number))
            finest = std::min(finest, axis->stepToKeep(statedSteps[number]));
    }
    // A step that was computed, as 1 / 1000000.
    if (finest < textStep * (1 - 1e-9))
        add("rounding",
            "coordinates are rounded by up to {:.2g}, more than the input's step of {:.2g} allows; text has "
            "six decimals",
            textStep / 2, finest);
}

void Finder::findValues() {
    std::map<std::string, double> roundingOf;
    std::set<std::string> characters;
    for (const AsciiWalk::Written& written : grid_.written) {
        const AsciiStop& stop = *written.stop;
        if (written.rounding > 0)
            roundingOf[stop.field] = std::max(roundingOf[stop.field], written.rounding);
        if (stop.lattice && settings_.precision != 0 && stop.type() == typeid(unsigned char))
            characters.insert(stop.field);
    }
    for (const auto& [field, rounding] : roundingOf)
        add("rounding", "values of {} are rounded by up to {:.2g}", field, rounding);
    for (const std::string& field : characters)
        add("characters", "{} is written as characters, not as numbers; --precision 0 writes numbers", field);
}

} // namespace

void addAsciiLosses(const ExportedGrid& exported, const AsciiWalk::Grid& grid, const AsciiSettings& settings,
                    std::span<const ConvLib::WrittenFile> record, Losses& losses) {
    Finder(exported, grid, settings, record, losses).run();
}

} // namespace Tidewatch
