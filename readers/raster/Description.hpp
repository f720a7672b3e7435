// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "geom/PhysicalSpace.hpp"

#include <array>
#include <cstdint>
#include <gdal.h>
#include <optional>
#include <string>
#include <typeinfo>
#include <vector>

namespace Tidewatch::Raster {

/// The positions of a raster's pixels, and how to flip them so that x and y ascend.
struct Placing {
    /// The centre of the pixel with the lowest x and y.
    Geom::PhysicalSpace::point corner;
    /// The size of a pixel, positive.
    Geom::PhysicalSpace::vector spacing;
    /// The file's first column has the highest x.
    bool columnsDescend = false;
    /// The file's first row has the highest y: north is up.
    bool rowsDescend = true;

    /// From GDAL's six numbers of an affine transform: x = t[0] + column * t[1] + row * t[2], y = t[3] +
    /// column * t[4] + row * t[5], where whole columns and rows are corners of pixels. Without a transform,
    /// coordinates are in pixels, with the first row at the top. Throws Anchor::FormatError when the raster
    /// is rotated or the numbers are invalid; `path` is for the message.
    [[nodiscard]] static Placing make(const std::optional<std::array<double, 6>>& transform,
                                      std::uint64_t width, std::uint64_t height, const std::string& path);
};

/// The types of a band's numbers.
struct Band {
    /// The element type of the field made from the band.
    const std::type_info* element = nullptr;
    /// GDAL's name for the type of the file's pixels.
    GDALDataType pixels = GDT_Unknown;
    /// GDAL reports the bytes as unsigned, but they are signed.
    bool isSignedByte = false;
};

/// The metadata of a raster.
struct Description {
    std::string driver;
    std::uint64_t width = 0;
    std::uint64_t height = 0;
    Placing placing;
    std::vector<Band> bands;
    /// The coordinate reference system as well-known text (ISO 19162:2019); empty if there is none, or GDAL
    /// cannot export it.
    std::string referenceSystem;
    /// The size in bytes of the file's largest block, the unit of decoding.
    std::uint64_t blockBytes = 0;
    /// Content of the file that the fields do not carry; one short phrase each.
    std::vector<std::string> notCarried;
};

} // namespace Tidewatch::Raster
