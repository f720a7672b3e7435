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

/// Where the pixels of a raster lie, and which way they have to be turned so that x and y ascend.
struct Placing {
    /// The centre of the pixel with the least x and y.
    Geom::PhysicalSpace::point corner;
    /// The size of a pixel, positive.
    Geom::PhysicalSpace::vector spacing;
    /// The file's first column has the greatest x.
    bool columnsDescend = false;
    /// The file's first row has the greatest y: north is up.
    bool rowsDescend = true;

    /// From GDAL's six numbers of an affine transform: x = t[0] + column * t[1] + row * t[2], y = t[3] +
    /// column * t[4] + row * t[5], where whole columns and rows are corners of pixels. Without them a raster
    /// counts in pixels, its first row on top. Throws Anchor::FormatError where the raster is rotated or the
    /// numbers make no sense; `path` is for the message.
    [[nodiscard]] static Placing make(const std::optional<std::array<double, 6>>& transform,
                                      std::uint64_t width, std::uint64_t height, const std::string& path);
};

/// A band's numbers.
struct Band {
    /// The type of the elements that the band becomes.
    const std::type_info* element = nullptr;
    /// GDAL's name for the type of the file's pixels.
    GDALDataType pixels = GDT_Unknown;
    /// GDAL gives the bytes for unsigned ones, and they are signed.
    bool isSignedByte = false;
};

/// What a raster states about itself.
struct Description {
    std::string driver;
    std::uint64_t width = 0;
    std::uint64_t height = 0;
    Placing placing;
    std::vector<Band> bands;
    /// The coordinate reference system as well-known text (ISO 19162:2019); empty where there is none, or GDAL cannot say it.
    std::string referenceSystem;
    /// The size of the file's largest block, all that is decoded together.
    std::uint64_t blockBytes = 0;
    /// What the file holds and the fields do not carry; one short phrase each.
    std::vector<std::string> notCarried;
};

} // namespace Tidewatch::Raster
