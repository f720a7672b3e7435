// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/BasicConverterDefs.hpp"
#include "geom/MultiRange.hpp"

#include <string>

namespace ExportLib {

/// Writes every field of the selected skeletons as text: points, vectors and colours as XYZ text (".asc"),
/// numbers on a uniform grid as ESRI ASCII grids (".grd"), numbers elsewhere as value lists (".asc").
///
/// OutputPath is a folder that exists; a path that is none is replaced by "." for good. Below it a file is
/// named after field, skeleton and fragment (docs/ascii.md has the layouts), never after grid or time: a
/// later grid or time step overwrites the files of an earlier one, or adds to them in append mode. Fields of
/// other element types than those that have a writer are passed over in silence. AsciiPlan tells beforehand what becomes of what.
///
/// One fragment of one field is in memory at a time, with the fragment's positions or cell types. Progress is
/// reported before each fragment, "KxtoASCII, <field> #"; a refusal is not listened to. Whatever the file
/// system facilities throw passes through Run(). Output errors show in writtenFiles() only: there is one
/// record each time a file was opened, and with Append it sums up what Run() has put into that file so far.
/// Items are elements, or cells including those without a value.
class TIDEWATCH_API ExportPointCloudToASCII : public ConvLib::BasicConverterDefs {
public:
    /// Sets the defaults below. CellTypeFilter starts with one range that holds every number, so a host that
    /// accepts only some cell types replaces it instead of adding to it.
    ExportPointCloudToASCII();
    ~ExportPointCloudToASCII() override;

    std::string printSecondary() override;
    bool Run() override;

    /// The field (8-bit unsigned) that says of each cell of a uniform grid what it is.
    std::string FilterField = "CellType";
    /// The cell types whose cells are written with their value; all others become no-data cells.
    Geom::MultiRange<double> CellTypeFilter;
    /// The refinement level whose skeletons are exported; -1: the highest homogeneous vertex refinement of
    /// the grid only; -2: every skeleton.
    int RefLevel = -1;
    /// Decimals of the values in grids; 0 writes six, and bytes as numbers. It has no effect elsewhere. With
    /// any other number bytes are written as raw characters.
    unsigned int Precision = 0;
    /// One file a field, opened for appending, instead of one file a fragment.
    bool Append = false;
    /// Whether the names of grids end in the coordinates of their lower left corner.
    bool TileSuffix = false;
};

} // namespace ExportLib
