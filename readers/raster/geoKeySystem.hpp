// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

#include <cstdint>
#include <span>
#include <string>

namespace Tidewatch {

/// GeoTIFF keys as TIFF and LAS files hold them, little-endian (OGC GeoTIFF 1.1, annex B; LAS 1.4 R15, "GeoTIFF"): the
/// directory of 16-bit numbers, and the doubles and texts that it refers to, which may be missing.
struct GeoKeyBytes {
    std::span<const std::uint8_t> directory;
    std::span<const std::uint8_t> doubles = {};
    std::span<const std::uint8_t> texts = {};
};

/// The coordinate reference system that keys state, as GDAL says it in well-known text (ISO 19162): GDAL reads a TIFF
/// file of one pixel with these keys, which is made in memory, as it reads rasters, in a process of its own, whatever
/// way readers have been registered for. Empty where it finds none.
///
/// Throws Anchor::FileError where the process cannot be started, Anchor::LimitError for keys of more than 256 KiB, and
/// what reading a raster throws. To be called only where canReadGeoKeys().
[[nodiscard]] TIDEWATCH_API std::string systemOfGeoKeys(const GeoKeyBytes& keys);

/// Whether this was built with GDAL.
[[nodiscard]] TIDEWATCH_API bool canReadGeoKeys() noexcept;

} // namespace Tidewatch
