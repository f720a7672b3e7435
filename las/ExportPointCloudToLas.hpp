// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/BasicConverterDefs.hpp"

#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <string_view>
#include <typeinfo>

namespace ExportLib {

/// Writes point clouds as LAS 1.2, 1.3 or 1.4, compressed (LAZ) unless told otherwise: fields of a grid
/// become point attributes by their names, fragment by fragment.
///
/// OutputPath gives the name: its last extension, searched for in the whole path, gives way to ".laz" or
/// ".las". Every grid of every slice is written to that name, so the file ends up holding the last one; with
/// `tiles`, every fragment gets a file of its own, named after it. One fragment at a time is in memory.
///
/// Run() asks the progress reporter before each fragment; a refusal skips the fragment and leaves
/// "Interrupted" in Errors. A fragment without positions to write ends its slice with "No positions to
/// export". Output errors show in writtenFiles() only. docs/las.md has the attributes and the quirks.
class TIDEWATCH_API ExportPointCloudToLas : public ConvLib::BasicConverterDefs {
public:
    ExportPointCloudToLas();
    ~ExportPointCloudToLas() override;

    /// Day, Year, Version, RefLevel and, where it is set, tiles.
    std::string printSecondary() override;

    /// Always true: without a bundle there is nothing to do, and what goes wrong stands in Errors.
    bool Run() override;

    /// The creation date that headers state, each number cut to 16 bits; 0 and 0 stand for today.
    int Day = 0;
    int Year = 0;
    /// Is printed, and that is all: the highest homogeneous vertex refinement is exported.
    int RefLevel = -1;
    /// One file a fragment instead of one a grid.
    bool tiles = false;
    /// 2, 3 or 4 for LAS 1.2, 1.3 or 1.4. With any other number nothing is written, and nothing said.
    int Version = 4;
    /// From the name of a field to the name of the LAS attribute that it becomes. An empty map is filled with
    /// DefaultRenameMap() by Run(); "Reflectance" and "Amplitude" need no entry.
    std::map<std::string, std::string> RenameMap;
    /// Grows by one for every fragment whose fields have been collected.
    int FragmentCount = 0;
    /// ".las" instead of ".laz".
    bool uncompressed = false;
    /// The point source ID of every point, where it is greater than 0.
    int PointSourceID = 0;

    /// The twelve names that a run without a rename map knows, each standing for itself.
    [[nodiscard]] static std::map<std::string, std::string> DefaultRenameMap();

    /// Whether an array of that element type becomes the LAS attribute of that name. Fields for which it is
    /// false are left out of files without a word.
    [[nodiscard]] static bool Carries(std::string_view lasName, const std::type_info& elementType);

    /// How the files of an export store coordinates along an axis: as 32-bit numbers of steps from an offset,
    /// both in coordinate units.
    struct Axis {
        double offset;
        double step;

        /// The coordinates of the smallest and of the largest number. Points beyond them are written, but
        /// their numbers wrap.
        [[nodiscard]] double lowest() const noexcept {
            return offset + step * std::numeric_limits<std::int32_t>::min();
        }
        [[nodiscard]] double highest() const noexcept {
            return offset + step * std::numeric_limits<std::int32_t>::max();
        }
    };

    /// The axis of a file whose points (all of the grid's, or with `tiles` those of the fragment) reach from
    /// `lower` to `upper`; `lower` above `upper` stands for no points.
    [[nodiscard]] static Axis AxisOf(double lower, double upper);
};

} // namespace ExportLib
