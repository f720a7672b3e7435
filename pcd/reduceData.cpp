// SPDX-License-Identifier: Apache-2.0
#include "pcd/reduceData.hpp"

#include "pcd/CellSelector.hpp"

namespace ExportLib {

std::vector<unsigned long long> reduceData(double cellSize,
                                           const std::vector<Geom::PhysicalSpace::point>& points,
                                           const std::vector<unsigned short>& intensities,
                                           const Geom::PhysicalSpace::point& origin,
                                           const Geom::PhysicalSpace::point& upper) {
    return reduceData(cellSize, points, intensities, origin, upper, {});
}

std::vector<unsigned long long> reduceData(double cellSize,
                                           const std::vector<Geom::PhysicalSpace::point>& points,
                                           const std::vector<unsigned short>& intensities,
                                           const Geom::PhysicalSpace::point& origin,
                                           const Geom::PhysicalSpace::point& /*upper*/,
                                           const StopQuestion& mayGoOn, Anchor::Workers* workers) {
    if (points.empty())
        return {};
    const CellSelector selector(cellSize, points, intensities, origin, mayGoOn, workers);
    return selector.select(selector.preferred());
}

} // namespace ExportLib
