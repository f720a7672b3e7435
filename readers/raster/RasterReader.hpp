// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/Reader.hpp"
#include "readers/registerReaders.hpp"
#include "readers/source/Input.hpp"

#include <memory>
#include <mutex>

namespace Tidewatch {

/// Reads rasters through GDAL: GeoTIFF, ESRI ASCII grids and the other formats that docs/raster.md lists.
///
/// A file becomes one grid, named after the file without its extension, in the slice at
/// ReadOptions::SliceTime, with the standard chart, one vertex skeleton without refinement entries and one
/// fragment, "000000". Fields, all of them width by height by 1 elements, with rows ascending in y and
/// columns in x whatever the file's order:
///
/// | field | elements |
/// |---|---|
/// | Positions | a uniform grid; its corner is the centre of the lower left pixel |
/// | Band1, Band2, ... | the band's numbers; signed ones of 8 and 16 bits as 32 bits |
/// | CellType | 8 bits unsigned; 1 where every band has a value, 0 where one has no-data or is masked |
///
/// Coordinates of a file without georeference are in pixels, with the lower left corner at (0, 0). Rotated
/// rasters and complex numbers are refused (Anchor::FormatError).
///
/// Arrays are read on demand by a RasterSource, in a separate process or in this one; the files must not have
/// changed. Arrays larger than ReadOptions::MaximumArrayBytes are refused then (Anchor::LimitError).
class RasterReader final : public ConvLib::Reader {
public:
    explicit RasterReader(Reading reading = Reading::Apart);
    ~RasterReader() override;

    [[nodiscard]] std::string name() const override;
    /// Whether one of GDAL's drivers for these formats recognises the file. Register it last: some formats
    /// are plain text.
    [[nodiscard]] bool recognises(const std::string& path, std::span<const std::byte> head) const override;
    Anchor::StrongPtr<ConvLib::InputReport> read(Sheaf::Bundle& bundle, const std::string& path,
                                                 const ConvLib::ReadOptions& options) const override;

private:
    Reading reading_;
    mutable std::mutex mutex_;
    /// The input last recognised, which is usually read next.
    mutable std::shared_ptr<Input> recognised_;
};

} // namespace Tidewatch
