// SPDX-License-Identifier: Apache-2.0
#include "library/view/viewSystem.hpp"

#include "library/crs/gridSystem.hpp"
#include "library/report/Wording.hpp"

#include <algorithm>
#include <optional>
#include <string_view>
#include <vector>

namespace Tidewatch {

namespace {

/// By the codes of the EPSG register.
std::string_view unitText(std::optional<unsigned> code) {
    switch (code.value_or(0)) {
    case 9001:
        return "m";
    case 9002:
        return "ft";
    case 9003:
        return "US ft";
    case 9036:
        return "km";
    case 9102:
    case 9122:
        return "\xC2\xB0";
    default:
        return {};
    }
}

} // namespace

ViewSystem viewSystem(const Sheaf::Bundle& bundle, const Selection& selection) {
    std::vector<std::string> titles;
    std::optional<std::string> unit;
    selection.forEachGrid(bundle, [&](double, const std::string&, const Sheaf::Grid& grid) {
        const GridSystem known = GridSystem::of(grid);
        const std::string own(known.system ? unitText(known.system->unit()) : std::string_view());
        if (!unit)
            unit = own;
        else if (*unit != own)
            unit = "";
        if (!known.isThere())
            return;
        const std::string title = known.title();
        if (std::find(titles.begin(), titles.end(), title) == titles.end())
            titles.push_back(title);
    });
    return {joined(titles, "; "), unit.value_or("")};
}

} // namespace Tidewatch
