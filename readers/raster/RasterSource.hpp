// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/raster/RasterFile.hpp"
#include "readers/source/Source.hpp"

namespace Tidewatch {

/// A raster that is read through GDAL: GeoTIFF, ESRI ASCII grids and the other formats that docs/raster.md
/// lists. RasterReader describes the result. Formats that refer to other files or to the network are not
/// read: see Raster::readableDrivers.
class RasterSource final : public Source {
public:
    /// Throws what Raster::RasterFile throws.
    explicit RasterSource(const SourceFiles& files);

    [[nodiscard]] Structure structure(const Tick& tick) override;
    [[nodiscard]] std::vector<std::string> read(const Structure::Array& array, ArrayMemory& target,
                                                std::uint64_t most, const Tick& tick) override;

private:
    std::string path_;
    Raster::RasterFile file_;
    Raster::Description description_;
};

} // namespace Tidewatch
