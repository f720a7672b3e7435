// SPDX-License-Identifier: Apache-2.0
#include "library/las/LasLosses.hpp"

#include "library/report/Wording.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <string>
#include <string_view>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

class Finder {
public:
    Finder(const ExportedGrid& exported, const LasWalk::Grid& grid, const LasSettings& settings,
           Losses& losses)
        : grid_(grid),
          found_(grid.findings),
          settings_(settings),
          losses_(losses),
          where_(gridAtTime(exported.name, exported.time)) {}

    void run() {
        findFields();
        findSupplies();
        findRounding();
        findValues();
        findExtraBytes();
    }

private:
    void findFields();
    void findSupplies();
    void findRounding();
    void findValues();
    void findExtraBytes();

    template <class... Arguments>
    void add(std::string_view kind, fmt::format_string<Arguments...> text, Arguments&&... arguments) {
        losses_.addOf(where_, kind, fmt::format(text, std::forward<Arguments>(arguments)...));
    }

    const LasWalk::Grid& grid_;
    const LasFindings& found_;
    const LasSettings& settings_;
    Losses& losses_;
    std::string where_;
};

void Finder::findFields() {
    for (const std::string& field : grid_.mapping.unknownFields)
        losses_.addField(field);
    for (const auto& [field, reason] : grid_.mapping.fieldsLeftOut)
        add("fields", "{} is left out: {}", field, reason);
}

void Finder::findSupplies() {
    for (const auto& [attribute, supply] : found_.supplies) {
        if (supply.surplus != 0)
            add("count", "{} has {} more than there are points for", attribute,
                counted(supply.surplus, "value"));
        if (supply.values != found_.points)
            add("count", "{} has {} for {}; a point without one repeats that of the point before", attribute,
                counted(supply.values, "value"), counted(found_.points, "point"));
    }
}

void Finder::findRounding() {
    const Geom::PhysicalSpace::vector stated = grid_.inputStep.value_or(Geom::PhysicalSpace::vector{});
    const double statedSteps[] = {stated.x, stated.y, stated.z};
    double worst = 0;
    double stepOfWorst = 0;
    for (std::size_t number = 0; number < CoordinateSurvey::axes; ++number) {
        const auto axis = found_.survey.axis(number);
        if (!axis)
            continue;
        const double step = axis->stepToKeep(statedSteps[number]);
        const double noise = 4 * std::numeric_limits<double>::epsilon() *
                             std::max(std::abs(axis->lower), std::abs(axis->upper));
        // Up to half a step a coordinate can still be told from its neighbours.
        if (found_.rounding[number] > step / 2 * (1 + 1e-9) + noise && found_.rounding[number] > worst) {
            worst = found_.rounding[number];
            stepOfWorst = step;
        }
    }
    if (worst > 0)
        add("rounding",
            "coordinates are rounded by up to {:.2g}, more than the input's step of {:.2g} allows; LAS files "
            "are written in steps of {}",
            worst, stepOfWorst, shortestText(lasAxes(grid_.box)[0].step));
}

void Finder::findValues() {
    if (found_.highClasses != 0)
        add("range",
            "{} a class above 31, of which LAS 1.{} keeps the low 5 bits; --las-version 1.4 keeps all",
            found_.highClasses == 1 ? "1 point has" : counted(found_.highClasses, "point") + " have",
            settings_.version);
    if (found_.highReturns != 0)
        add("range", "{} return numbers above {}, which become {}{}",
            found_.highReturns == 1 ? "1 point has" : counted(found_.highReturns, "point") + " have",
            lasReturnLimit(settings_), lasReturnLimit(settings_),
            settings_.isExtended() ? "" : "; --las-version 1.4 keeps them up to 15");
    if (found_.wideFlags != 0)
        add("range", "{} a ScanDirectionFlag or EdgeOfFlightLine above 1, of which the lowest bit is kept",
            found_.wideFlags == 1 ? "1 point has" : counted(found_.wideFlags, "point") + " have");
    if (found_.fineAngles != 0)
        add("fields",
            "ScanAngleRank is left out: LAS 1.{} has no room for the 16-bit angles of {}; --las-version 1.4 "
            "keeps them",
            settings_.version, counted(found_.fineAngles, "point"));
    if (found_.rawAngles != 0)
        add("units", "ScanAngleRank stands in whole degrees in a field that counts in 0.006 degrees; "
                     "--las-version 1.2 "
                     "or 1.3 keeps its meaning");
}

void Finder::findExtraBytes() {
    if (found_.lateValues != 0)
        add("shift",
            "Reflectance and Amplitude come one point late: the first point of a file has 0, and the "
            "last value is left out");
    if (found_.wildReflectances != 0)
        add("range", "{} outside of -25 to 5, which wrap", counted(found_.wildReflectances, "reflectance"));
    if (found_.wildAmplitudes != 0)
        add("range", "{} outside of 0 to 65535, which wrap", counted(found_.wildAmplitudes, "amplitude"));
    // Values that come from a LAS file differ from its steps by the rounding of floats.
    constexpr double noise = 1e-5;
    if (found_.reflectanceRounding > noise)
        add("rounding", "reflectances are rounded by up to {:.2g}", found_.reflectanceRounding);
    if (found_.amplitudeRounding > 0)
        add("rounding", "amplitudes lose their fractions, up to {:.2g}", found_.amplitudeRounding);
}

} // namespace

void addLasLosses(const ExportedGrid& exported, const LasWalk::Grid& grid, const LasSettings& settings,
                  Losses& losses) {
    Finder(exported, grid, settings, losses).run();
}

} // namespace Tidewatch
