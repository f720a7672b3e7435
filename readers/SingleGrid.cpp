// SPDX-License-Identifier: Apache-2.0
#include "readers/SingleGrid.hpp"

#include "readers/names.hpp"

namespace Tidewatch {

std::string addSingleGrid(Sheaf::Bundle& bundle, const std::string& path, const ConvLib::ReadOptions& options,
                          const std::function<void(const SingleGrid&)>& fill) {
    std::string name = gridNameOf(path);
    const auto slice = bundle.makeSlice(options.SliceTime);
    const bool isNewSlice = slice->grids().empty();
    const auto grid = slice->makeGrid(name, path);
    try {
        const auto chart = grid->declareCartesianChart(std::string(Sheaf::Grid::standardChart));
        const auto vertices = grid->skeletons().make({})->representations().make(chart);
        fill({*grid, *chart, *vertices});
    } catch (...) {
        slice->removeGrid(name);
        if (isNewSlice)
            bundle.removeSlice(options.SliceTime);
        throw;
    }
    return name;
}

} // namespace Tidewatch
