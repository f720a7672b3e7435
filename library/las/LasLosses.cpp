// SPDX-License-Identifier: Apache-2.0
#include "library/las/LasLosses.hpp"

#include "anchor/printable.hpp"
#include "library/report/Wording.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

using ConvLib::ValueChange;
using ExportLib::LasSettings;

class Finder {
public:
    Finder(const ExportedGrid& exported, const LasRecorder::Grid& grid, const LasSettings& settings,
           Losses& losses)
        : exported_(exported),
          grid_(grid),
          settings_(settings),
          losses_(losses),
          where_(gridAtTime(exported.name, exported.time)) {}

    void run() {
        findFields();
        findSupplies();
        findRounding();
        findValues();
        findExtraBytes();
        if (settings_.carry)
            findWhatIsCarried();
    }

private:
    void findFields();
    void findSupplies();
    void findRounding();
    void findValues();
    void findExtraBytes();
    void findWhatIsCarried();

    template <class... Arguments>
    void add(std::string_view kind, fmt::format_string<Arguments...> text, Arguments&&... arguments) {
        losses_.addOf(where_, kind, fmt::format(text, std::forward<Arguments>(arguments)...));
    }

    [[nodiscard]] std::uint64_t count(const std::string& attribute, ValueChange change) const {
        return exported_.changed(attribute, change).count;
    }
    [[nodiscard]] std::optional<double> stepToKeep(std::size_t axis) const;
    [[nodiscard]] double farthest(std::size_t axis) const;

    const ExportedGrid& exported_;
    const LasRecorder::Grid& grid_;
    const LasSettings& settings_;
    Losses& losses_;
    std::string where_;
};

void Finder::findFields() {
    for (const std::string& field : grid_.plan.unknownFields)
        losses_.addField(field);
    for (const auto& [field, leftOut] : grid_.plan.fieldsLeftOut)
        add("fields", "{} is left out: {}{}", field, leftOut.reason,
            leftOut.latestVersionKeepsIt ? "; --las-version 1.4 keeps it" : "");
}

void Finder::findSupplies() {
    for (const auto& [key, change] : exported_.changes) {
        const std::string& attribute = key.first;
        if (key.second == ValueChange::Surplus)
            add("count", "{} has {} more than there are points for", attribute,
                counted(change.count, "value"));
        else if (key.second == ValueChange::Repeated)
            add("count", "{} has {} for {}; a point without one repeats that of the point before", attribute,
                counted(change.total - change.count, "value"), counted(change.total, "point"));
    }
}

/// The step of the coordinates along an axis that the file should preserve.
std::optional<double> Finder::stepToKeep(std::size_t axis) const {
    const double stated[] = {grid_.inputStep.x, grid_.inputStep.y, grid_.inputStep.z};
    if (stated[axis] > 0)
        return stated[axis];
    const auto known = exported_.survey.axis(axis);
    return known ? std::optional(known->stepToKeep(0)) : std::nullopt;
}

double Finder::farthest(std::size_t axis) const {
    double most = 0;
    for (const LasRecorder::File& file : grid_.files) {
        if (file.axes[axis].lower <= file.axes[axis].upper)
            most = std::max({most, std::abs(file.axes[axis].lower), std::abs(file.axes[axis].upper)});
    }
    return most;
}

void Finder::findRounding() {
    const char* const attributes[] = {"Positions.x", "Positions.y", "Positions.z"};
    double worst = 0;
    double stepOfWorst = 0;
    for (std::size_t axis = 0; axis < CoordinateSurvey::axes; ++axis) {
        const std::optional<double> step = stepToKeep(axis);
        if (!step)
            continue;
        const double rounding = exported_.changed(attributes[axis], ValueChange::Rounded).most;
        const double noise = 4 * std::numeric_limits<double>::epsilon() * farthest(axis);
        // With a change of up to half a step a coordinate can still be distinguished from its neighbours.
        if (rounding > *step / 2 * (1 + 1e-9) + noise && rounding > worst) {
            worst = rounding;
            stepOfWorst = *step;
        }
    }
    if (worst > 0 && !grid_.files.empty())
        add("rounding",
            "coordinates are rounded by up to {:.2g}, more than the input's step of {:.2g} allows; LAS files "
            "are written in steps of {}",
            worst, stepOfWorst, shortestText(grid_.files.front().axes[0].step));
}

/// The subject of a sentence.
std::string points(std::uint64_t number) {
    return number == 1 ? "1 point has" : counted(number, "point") + " have";
}

void Finder::findValues() {
    if (const auto high = count("Classification", ValueChange::Truncated); high != 0)
        add("range",
            "{} a class above 31, of which LAS 1.{} keeps the low 5 bits; --las-version 1.4 keeps all",
            points(high), settings_.version);
    const unsigned returnLimit = LasSettings::returnLimit(settings_.isExtended());
    if (const auto high = count("ReturnNumber, NumberOfReturns", ValueChange::Clamped); high != 0)
        add("range", "{} return numbers above {}, which become {}{}", points(high), returnLimit, returnLimit,
            settings_.isExtended() ? "" : "; --las-version 1.4 keeps them up to 15");
    if (const auto wide = count("ScanDirectionFlag, EdgeOfFlightLine", ValueChange::Truncated); wide != 0)
        add("range", "{} a ScanDirectionFlag or EdgeOfFlightLine above 1, of which the lowest bit is kept",
            points(wide));
    if (const auto fine = count("ScanAngleRank", ValueChange::Dropped); fine != 0)
        add("fields",
            "ScanAngleRank is left out: LAS 1.{} has no room for the 16-bit angles of {}; --las-version 1.4 "
            "keeps them",
            settings_.version, counted(fine, "point"));
    if (count("ScanAngleRank", ValueChange::OtherUnit) != 0)
        add("units",
            "ScanAngleRank is written in whole degrees to a field that counts in 0.006 degrees; --plain "
            "keeps that, and --las-version 1.2 or 1.3 the meaning");
}

void Finder::findExtraBytes() {
    if (count("Reflectance", ValueChange::Shifted) + count("Amplitude", ValueChange::Shifted) != 0)
        add("shift",
            "Reflectance and Amplitude come one point late: the first point of a file has 0, and the "
            "last value is left out; --plain keeps that");
    if (const auto wild = count("Reflectance", ValueChange::Wrapped); wild != 0)
        add("range", "{} outside of -25 to 5, which wrap", counted(wild, "reflectance"));
    if (const auto wild = count("Amplitude", ValueChange::Wrapped); wild != 0)
        add("range", "{} outside of 0 to 65535, which wrap", counted(wild, "amplitude"));
    // Values that come from a LAS file differ from its steps by the rounding of floats.
    constexpr double noise = 1e-5;
    if (const double most = exported_.changed("Reflectance", ValueChange::Rounded).most; most > noise)
        add("rounding", "reflectances are rounded by up to {:.2g}", most);
    if (const double most = exported_.changed("Amplitude", ValueChange::Rounded).most; most > 0)
        add("rounding", "amplitudes lose their fractions, up to {:.2g}", most);
}

void Finder::findWhatIsCarried() {
    const char* const unlessExtended[] = {"Overlap", "ScannerChannel", "NearInfrared"};
    for (const char* const attribute : unlessExtended) {
        if (const auto dropped = count(attribute, ValueChange::Dropped); dropped != 0)
            add("fields",
                "{} is left out: LAS 1.{} has no room for what {} of it; --las-version 1.4 keeps it",
                attribute, settings_.version, points(dropped));
    }
    if (const auto high = count("ScannerChannel", ValueChange::Truncated); high != 0)
        add("range", "{} a ScannerChannel above 3, of which the lowest two bits are kept", points(high));
    if (const double most = exported_.changed("ScanAngleRank", ValueChange::Rounded).most; most > 0)
        add("rounding",
            "scan angles are rounded to whole degrees by up to {:.2g}; --las-version 1.4 keeps them", most);
    std::string last;
    for (const ExportLib::LasPlan::ExtraBytes& extra : grid_.plan.extras) {
        if (extra.field == last)
            continue;
        last = extra.field;
        if (const double most = exported_.changed(last, ValueChange::Rounded).most; most > 0)
            add("rounding", "{} is rounded by up to {:.2g}, since its input stored it in such steps", last,
                most);
        if (const auto clamped = count(last, ValueChange::Clamped); clamped != 0)
            add("range", "{} of {} beyond what its input could store become the nearest that it could",
                counted(clamped, "value"), last);
        if (const auto lost = count(last, ValueChange::Dropped); lost != 0)
            add("range", "{} of {} that is not a number becomes 0", counted(lost, "value"), last);
    }
    for (const auto& record : grid_.plan.recordsLeftOut)
        add("properties", "record {}/{} is left out: {}", Anchor::printable(record.userId), record.recordId,
            record.reason);
}

} // namespace

void addLasLosses(const ExportedGrid& exported, const LasRecorder::Grid& grid,
                  const ExportLib::LasSettings& settings, Losses& losses) {
    Finder(exported, grid, settings, losses).run();
}

} // namespace Tidewatch
