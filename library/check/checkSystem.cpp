// SPDX-License-Identifier: Apache-2.0
#include "library/check/checkSystem.hpp"

#include "anchor/Error.hpp"
#include "anchor/printable.hpp"
#include "library/check/kinds.hpp"
#include "library/crs/gridSystem.hpp"
#include "library/report/Wording.hpp"

namespace Tidewatch {

namespace {

void checkSystem(CheckReport& report, const std::string& place, const Sheaf::Grid& grid) {
    const GridSystem system = GridSystem::of(grid);
    if (!system.isThere())
        report.note(Kind::noSystem, place, "there is no coordinate reference system");
    else if (!system.text.empty() && !system.system)
        report.warning(Kind::unreadableSystem, place,
                       "the well-known text of the coordinate reference system cannot be read");
    else if (!system.unreadable.empty())
        report.note(Kind::unreadableSystem, place,
                    "a part of the coordinate reference system is not read: " +
                        Anchor::printable(system.unreadable));
}

} // namespace

void checkSystems(CheckReport& report, const Sheaf::Bundle& bundle) {
    std::size_t grids = 0;
    for (const auto& [time, slice] : bundle.slices()) {
        if (const auto locked = slice.lock())
            grids += locked->grids().size();
    }
    for (const auto& [time, slice] : bundle.slices()) {
        const auto locked = slice.lock();
        if (!locked)
            continue;
        for (const auto& [name, weakGrid] : locked->grids()) {
            if (const auto grid = weakGrid.lock())
                checkSystem(report, grids > 1 ? gridAtTime(Anchor::printable(name), time) : std::string(),
                            *grid);
        }
    }
}

void checkSystemText(CheckReport& report, const std::string& place, const std::string& text) {
    try {
        static_cast<void>(ReferenceSystem::fromText(text));
    } catch (const Anchor::FormatError& error) {
        report.warning(Kind::unreadableSystem, place,
                       std::string("the coordinate reference system cannot be read: ") + error.what());
    }
}

} // namespace Tidewatch
