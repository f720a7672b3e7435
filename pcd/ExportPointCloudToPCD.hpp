// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/BasicConverterDefs.hpp"

#include <string>

namespace Sheaf {
class Grid;
}

namespace ExportLib {

/// Writes point clouds as PCD text: shifted to a local integer origin, thinned to one point per cubic cell,
/// and, if every point has an intensity, with a normalised intensity and a colour mixed from height and
/// intensity.
///
/// OutputPath is the file. Every grid of every slice is written to it, so it ends up holding the last one.
/// The fields used are "Positions" (Geom::PhysicalSpace::point) and "Intensity" (16-bit unsigned) of the
/// selected skeletons; all points of a grid are in memory at once. Output errors show only in writtenFiles().
class TIDEWATCH_API ExportPointCloudToPCD : public ConvLib::BasicConverterDefs {
public:
    ExportPointCloudToPCD();
    ~ExportPointCloudToPCD() override;

    bool Run() override;

    /// The refinement level whose skeletons are exported; -1: the highest homogeneous vertex refinement of
    /// the grid.
    int RefLevel = -1;
    /// Significant digits of the numbers in data lines, as for a C++ stream: 0 gives one digit, a negative
    /// number six.
    int Precision = 8;
    /// Edge length of the cells, in coordinate units. Not validated: 0 puts the whole cloud into one cell.
    double CellSize = 0.1;
    /// Whether WIDTH and POINTS count the lines that follow. By default they count the points before
    /// thinning, as they always have; some readers reject a file whose counts exceed its lines.
    bool ExactCounts = false;
    /// Whether a cell keeps one point only. Without thinning all points are written in their order, and CellSize has no
    /// effect.
    bool Thinning = true;

private:
    void exportGrid(double time, const std::string& name, const Sheaf::Grid& grid);
};

} // namespace ExportLib
