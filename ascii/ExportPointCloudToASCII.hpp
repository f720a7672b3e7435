// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/BasicConverterDefs.hpp"
#include "geom/MultiRange.hpp"

#include <string>

namespace ExportLib {

/// Writes every field of the selected skeletons as text: points, vectors and colours as XYZ text (".asc"),
/// numbers on a uniform grid as ESRI ASCII grids (".grd"), numbers elsewhere as value lists (".asc").
///
/// OutputPath is an existing folder; a path that is not is permanently replaced by ".". Below it files are named after
/// field, skeleton and fragment (see docs/ascii.md), never after grid or time: a later grid or time step overwrites the
/// files of an earlier one, or appends to them in append mode. Fields of element types without a writer are skipped
/// silently. AsciiPlan gives the outcome in advance.
///
/// One fragment of one field is in memory at a time, with the fragment's positions or cell types. Progress is
/// reported before each fragment, "KxtoASCII, <field> #"; its result is ignored. Exceptions of the file system
/// functions pass through Run(). Output errors show only in writtenFiles(): it gets one record each time a file was
/// opened, with Append for everything that Run() has written to that file so far. Items are elements, or cells
/// including those without a value.
class TIDEWATCH_API ExportPointCloudToASCII : public ConvLib::BasicConverterDefs {
public:
    /// Sets the defaults below. CellTypeFilter starts with one range that contains every number, so a host that accepts
    /// only some cell types must replace it, not add to it.
    ExportPointCloudToASCII();
    ~ExportPointCloudToASCII() override;

    std::string printSecondary() override;
    bool Run() override;

    /// The field (8-bit unsigned) with the type of each cell of a uniform grid.
    std::string FilterField = "CellType";
    /// The cell types whose cells are written with their value; all others become no-data cells.
    Geom::MultiRange<double> CellTypeFilter;
    /// The refinement level whose skeletons are exported; -1: the highest homogeneous vertex refinement of
    /// the grid only; -2: every skeleton.
    int RefLevel = -1;
    /// Decimals of the values in grids; 0 writes six, and bytes as numbers. It has no effect elsewhere. With
    /// any other number bytes are written as raw characters.
    unsigned int Precision = 0;
    /// One file per field, opened for appending, instead of one per fragment.
    bool Append = false;
    /// Whether the names of grids end in the coordinates of their lower left corner.
    bool TileSuffix = false;
};

} // namespace ExportLib
