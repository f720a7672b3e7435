// SPDX-License-Identifier: Apache-2.0
#include "library/ascii/AsciiLosses.hpp"

#include "ascii/EsriGridHeader.hpp"
#include "library/report/Wording.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

using ExportLib::AsciiPlan;
using Geom::PhysicalSpace;
using Fragment = AsciiPlan::Fragment;

/// A fragment that became a file.
struct Written {
    const Fragment* fragment;
    /// The index in the exporter's record.
    std::size_t file;
};

/// The planned fragments for which files were written: both lists are in the exporter's order.
std::vector<Written> writtenFragments(const ExportedGrid& exported, const AsciiPlan& plan,
                                      std::span<const ConvLib::WrittenFile> record) {
    std::vector<Written> written;
    auto next = plan.fragments.begin();
    for (const ExportedGrid::Fragment& taken : exported.fragments) {
        next = std::find_if(next, plan.fragments.end(), [&](const Fragment& fragment) {
            return fragment.isSelected && fragment.field == taken.field &&
                   (fragment.fragment ? fragment.fragment->name() : std::string()) == taken.fragment;
        });
        if (next == plan.fragments.end())
            break;
        for (std::size_t file = taken.firstFile; file != taken.endFile; ++file) {
            // The reference system beside a grid is not the fragment.
            if (!record[file].path.ends_with(".prj"))
                written.push_back({&*next, file});
        }
        ++next;
    }
    return written;
}

class Finder {
public:
    Finder(const ExportedGrid& exported, const PlannedTexts::Grid& planned, const AsciiSettings& settings,
           bool choosesCells, std::span<const ConvLib::WrittenFile> record, Losses& losses)
        : exported_(exported),
          planned_(planned),
          written_(writtenFragments(exported, planned.plan, record)),
          settings_(settings),
          choosesCells_(choosesCells),
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
    void findUnselectedFields();
    void findEmptyFiles();
    void findSharedFiles();
    void findLattices();
    [[nodiscard]] static std::string latticeRounding(const AsciiPlan::Lattice& lattice);
    void findCoordinateRounding();
    void findValues();
    void findCells(const std::string& field);

    /// The number of items that a file got from one fragment; records of files that are appended to are
    /// cumulative.
    [[nodiscard]] std::uint64_t itemsOf(const Written& written) const;
    [[nodiscard]] std::string whyEmpty(const Fragment& fragment) const;

    template <class... Arguments>
    void add(std::string_view kind, fmt::format_string<Arguments...> text, Arguments&&... arguments) {
        losses_.addOf(where_, kind, fmt::format(text, std::forward<Arguments>(arguments)...));
    }

    const ExportedGrid& exported_;
    const PlannedTexts::Grid& planned_;
    std::vector<Written> written_;
    const AsciiSettings& settings_;
    bool choosesCells_;
    std::span<const ConvLib::WrittenFile> record_;
    Losses& losses_;
    std::string where_;
};

std::uint64_t Finder::itemsOf(const Written& written) const {
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
    for (const Fragment& fragment : planned_.plan.fragments) {
        if (!fragment.whyLeftOut.empty())
            leftOut.emplace(fragment.field, fragment.whyLeftOut);
    }
    for (const auto& [field, reason] : leftOut)
        add("fields", "{} is left out: {}", field, reason);
    if (settings_.refinementLevel == -1)
        findUnselectedFields();
}

/// A requested level is a filter; the default, which takes only the highest level, causes a loss.
void Finder::findUnselectedFields() {
    std::set<std::string> taken;
    std::set<std::string> unselected;
    for (const Fragment& fragment : planned_.plan.fragments) {
        if (!fragment.isExcluded)
            (fragment.isSelected ? taken : unselected).insert(fragment.field);
    }
    for (const std::string& field : unselected) {
        if (!taken.contains(field))
            add("fields",
                "{} is left out: it is only on skeletons other than the vertices of the highest level; "
                "--ref-level -2 takes all",
                field);
    }
}

std::string Finder::whyEmpty(const Fragment& fragment) const {
    if (fragment.form != AsciiPlan::Form::Grid)
        return "its array does not have the elements that were stated";
    switch (fragment.cellTypes) {
    case AsciiPlan::CellTypes::NoField:
        return fmt::format("there is no field \"{}\" of cell types; --filter-field names another",
                           settings_.filterField);
    case AsciiPlan::CellTypes::NoFragment:
        return fmt::format("the field \"{}\" has no cell types for it", settings_.filterField);
    case AsciiPlan::CellTypes::Stated:
        break;
    }
    return fmt::format(
        "its values, its overlaps or the cell types of the field \"{}\" do not fit the lattice",
        settings_.filterField);
}

void Finder::findEmptyFiles() {
    std::map<std::pair<std::string, std::string>, std::size_t> emptyOf;
    for (const Written& written : written_) {
        if (written.fragment->elements != 0 && itemsOf(written) == 0)
            ++emptyOf[{written.fragment->field, whyEmpty(*written.fragment)}];
    }
    for (const auto& [which, count] : emptyOf)
        add("empty", "{}: {} without a value: {}", which.first, counted(count, "fragment"), which.second);
}

/// Skeletons of the same level, charts and fragments may get the same file name.
void Finder::findSharedFiles() {
    std::map<std::string, std::size_t> timesWritten;
    for (const Written& written : written_)
        ++timesWritten[record_[written.file].path];
    std::size_t overwritten = 0;
    std::size_t appended = 0;
    for (const Written& written : written_) {
        const auto entry = timesWritten.find(record_[written.file].path);
        if (entry == timesWritten.end())
            continue;
        if (entry->second > 1 && !settings_.append)
            ++overwritten;
        if (entry->second > 1 && settings_.append && written.fragment->lattice)
            ++appended;
        timesWritten.erase(entry);
    }
    if (overwritten != 0)
        add("overwritten",
            "{} written for several skeletons or charts, of which only the last is kept; "
            "--ref-level keeps levels apart",
            counted(overwritten, "file"));
    if (appended != 0)
        add("joined",
            "{} with the grids of several fragments one after the other, of which most programs read only "
            "the first",
            counted(appended, "file"));
}

void Finder::findLattices() {
    // The fields of one fragment share a lattice.
    std::set<std::string> roundings;
    std::uint64_t shift = 0;
    for (const Written& written : written_) {
        const auto& lattice = written.fragment->lattice;
        if (!lattice || itemsOf(written) == 0)
            continue;
        if (lattice->coordinateLoss != 0)
            roundings.insert(latticeRounding(*lattice));
        shift = std::max(shift, lattice->rowShift);
    }
    for (const std::string& rounding : roundings)
        add("rounding", "{}", rounding);
    if (shift != 0)
        add("shift",
            "the values of fragments that overlap their southern neighbour are up to {} too far north",
            counted(shift, "row"));
}

std::string Finder::latticeRounding(const AsciiPlan::Lattice& lattice) {
    if (lattice.writtenCellSize == 0)
        return fmt::format(
            "cells of {} are written with a size of 0.000, since the format has three decimals; "
            "the file cannot be placed",
            shortestText(lattice.spacingX));
    if (lattice.isSquareAsWritten)
        return fmt::format("the corner and the cell size of {} are written with three decimals: coordinates "
                           "are off by up to {:.2g}",
                           coordinateText(lattice.spacingX), lattice.coordinateLoss);
    return fmt::format(
        "cells of {} by {} are written as squares of {:.3f}: coordinates are off by up to {:.2g}",
        coordinateText(lattice.spacingX), shortestText(lattice.spacingY), lattice.writtenCellSize,
        lattice.coordinateLoss);
}

void Finder::findCoordinateRounding() {
    const double textStep = std::pow(10.0, -static_cast<double>(AsciiPlan::coordinateDecimals));
    const PhysicalSpace::vector stated = planned_.inputStep.value_or(PhysicalSpace::vector{});
    const double statedSteps[] = {stated.x, stated.y, stated.z};
    double finest = textStep;
    for (std::size_t number = 0; number < CoordinateSurvey::axes; ++number) {
        if (const auto axis = exported_.survey.axis(number))
            finest = std::min(finest, axis->stepToKeep(statedSteps[number]));
    }
    // Tolerates a step that was computed, such as 1 / 1000000.
    if (finest < textStep * (1 - 1e-9))
        add("rounding",
            "coordinates are rounded by up to {:.2g}, more than the input's step of {:.2g} allows; text has "
            "six decimals",
            textStep / 2, finest);
}

void Finder::findValues() {
    std::set<std::string> fields;
    std::set<std::string> characters;
    for (const Written& written : written_) {
        fields.insert(written.fragment->field);
        if (written.fragment->lattice && written.fragment->lattice->asCharacters)
            characters.insert(written.fragment->field);
    }
    for (const std::string& field : fields) {
        if (const auto rounded = exported_.changed(field, ConvLib::ValueChange::Rounded); rounded.count != 0)
            add("rounding", "values of {} are rounded by up to {:.2g}", field, rounded.most);
    }
    for (const std::string& field : fields)
        findCells(field);
    for (const std::string& field : characters)
        add("characters", "{} is written as characters, not as numbers; --precision 0 writes numbers", field);
}

void Finder::findCells(const std::string& field) {
    using ConvLib::ValueChange;
    const auto cells = [](std::uint64_t count) { return counted(count, "cell"); };
    // Zero is a type like any other in files that state types of their own.
    const std::uint64_t valueless = planned_.isSingleFile && !choosesCells_ && field != settings_.filterField
                                        ? exported_.changed(field, ValueChange::Valueless).count
                                        : 0;
    if (valueless != 0)
        add("no-data",
            "{} of {} without a value are written as numbers; --cell-types 1 makes no-data of them",
            cells(valueless), field);
    if (const auto same = exported_.changed(field, ValueChange::AsNoData).count; same != 0)
        add("no-data", "{} of {} with a value of {}, which stands for no value in the file", cells(same),
            field, ExportLib::EsriGridHeader::noDataNumber);
    if (const auto wild = exported_.changed(field, ValueChange::NotFinite).count; wild > valueless)
        add("range", "{} of {} infinite or not a number, which few programs read", cells(wild), field);
}

} // namespace

void addAsciiLosses(const ExportedGrid& exported, const PlannedTexts::Grid& planned,
                    const AsciiSettings& settings, bool choosesCells,
                    std::span<const ConvLib::WrittenFile> record, Losses& losses) {
    Finder(exported, planned, settings, choosesCells, record, losses).run();
}

} // namespace Tidewatch
