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

/// The coordinate reference system that keys state, as well-known text (ISO 19162) from GDAL: GDAL reads a
/// TIFF file of one pixel with these keys, which is created in memory, in a separate process whatever Reading
/// the readers have been registered with. Empty if it finds none.
///
/// Throws Anchor::FileError when the process cannot be started, Anchor::LimitError for keys of more than 256
/// KiB, and what reading a raster throws. Call only if canReadGeoKeys().
[[nodiscard]] TIDEWATCH_API std::string systemOfGeoKeys(const GeoKeyBytes& keys);

/// Whether this was built with GDAL.
[[nodiscard]] TIDEWATCH_API bool canReadGeoKeys() noexcept;

} // namespace Tidewatch
