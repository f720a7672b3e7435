// SPDX-License-Identifier: Apache-2.0
#include "library/input/Filters.hpp"

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

void Selection::forEachGrid(
    const Sheaf::Bundle& bundle,
    const std::function<void(double, const std::string&, const Sheaf::Grid&)>& visit) const {
    for (const auto& [time, weakSlice] : bundle.slices()) {
        const auto slice = weakSlice.lock();
        if (!slice || !UseThisTime(time))
            continue;
        for (const auto& [name, weakGrid] : slice->grids()) {
            const auto grid = weakGrid.lock();
            if (grid && UseThisGrid(name))
                visit(time, name, *grid);
        }
    }
}

} // namespace Tidewatch
