// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/BasicConverterDefs.hpp"

#include <array>
#include <map>
#include <optional>
#include <string>

namespace ExportLib {

/// Writes point clouds as LAS 1.2, 1.3 or 1.4, compressed (LAZ) unless told otherwise: fields of a grid
/// become point attributes by their names, fragment by fragment.
///
/// The file name is OutputPath with its last extension, searched for in the whole path, replaced by ".laz" or
/// ".las". Every grid of every slice is written to that name, so the file finally contains the last one; with
/// `tiles`, every fragment gets a separate file named after it. One fragment at a time is in memory.
///
/// Run() asks the progress reporter before each fragment; a refusal skips the fragment and leaves
/// "Interrupted" in Errors. A fragment without positions to write ends its slice with "No positions to
/// export". Output errors appear in writtenFiles() only. docs/las.md has the attributes and the quirks.
/// LasPlan predicts the result for a grid; an observer is notified of changes to values.
class TIDEWATCH_API ExportPointCloudToLas : public ConvLib::BasicConverterDefs {
public:
    ExportPointCloudToLas();
    ~ExportPointCloudToLas() override;

    /// Day, Year, Version, RefLevel and, where it is set, tiles.
    std::string printSecondary() override;

    /// Always true: without a bundle there is nothing to do, and errors are in Errors.
    bool Run() override;

    /// The creation date in headers, both numbers truncated to 16 bits; 0 and 0 stand for today.
    int Day = 0;
    int Year = 0;
    /// Only printed: the highest homogeneous vertex refinement is exported in any case.
    int RefLevel = -1;
    /// One file per fragment instead of one per grid.
    bool tiles = false;
    /// 2, 3 or 4 for LAS 1.2, 1.3 or 1.4. With any other number nothing is written, without an error.
    int Version = 4;
    /// From the name of a field to the name of the LAS attribute that it becomes. An empty map is filled with
    /// DefaultRenameMap() by Run(); "Reflectance" and "Amplitude" need no entry.
    std::map<std::string, std::string> RenameMap;
    /// The number of fragments whose fields have been collected.
    int FragmentCount = 0;
    /// ".las" instead of ".laz".
    bool uncompressed = false;
    /// The point source ID of every point, if greater than 0.
    int PointSourceID = 0;

    /// Whether grids are carried, beyond the contract (off by default): flags, scanner channel, near infrared
    /// and 16-bit colours; other fields as extra bytes with their encodings; the GPS time together with
    /// colours in LAS 1.2 and 1.3; and of a grid's statement the records, step and offset, GPS time encoding,
    /// file source ID and system identifier. docs/las.md has the details.
    [[nodiscard]] bool Carry() const noexcept;
    void setCarry(bool carry);

    /// Whether files follow LAS 1.4 R15 where the contract keeps older conventions (off by default): scan
    /// angles in steps of 0.006 degrees, 8-bit colours times 256, Reflectance and Amplitude with their own
    /// point and no undescribed bytes, counts by return of what is stored, days from 1, and the extent of the
    /// stored points.
    [[nodiscard]] bool Conforming() const noexcept;
    void setConforming(bool conforming);

    /// The steps and offsets of coordinates, x first; by default nothing, which leaves them to the exporter.
    /// Setting a step that is not finite and greater than 0, or an offset that is not finite, throws
    /// Anchor::ModelError.
    [[nodiscard]] std::optional<std::array<double, 3>> Step() const noexcept;
    [[nodiscard]] std::optional<std::array<double, 3>> Offset() const noexcept;
    void setStep(const std::optional<std::array<double, 3>>& step);
    void setOffset(const std::optional<std::array<double, 3>>& offset);

    /// The default rename map: twelve names, each mapped to itself.
    [[nodiscard]] static std::map<std::string, std::string> DefaultRenameMap();

private:
    class Own;
    [[nodiscard]] const Own& own() const noexcept;
    Own& own();
};

} // namespace ExportLib
