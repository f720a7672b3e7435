// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

/// The directory of GeoTIFF keys in TIFF and LAS files: four 16-bit numbers (version, revision, minor
/// revision, number of keys), then four for each key, in ascending order: its id, where its values are, how
/// many, and the value itself if it is a single 16-bit number. Source: OGC GeoTIFF 1.1 (19-008r4), and
/// GeoTIFF 1.0 (Ritter, Ruth 2000) for older codes.
namespace Formats::GeoTiff {

constexpr std::size_t headNumbers = 4;
constexpr std::size_t keyNumbers = 4;
constexpr std::uint16_t directoryVersion = 1;
constexpr std::uint16_t revision = 1;
constexpr std::uint16_t inPlace = 0; ///< the place of a value that is in the directory itself

namespace Key {
constexpr std::uint16_t model = 1024;
constexpr std::uint16_t raster = 1025;
constexpr std::uint16_t geodeticSystem = 2048;
constexpr std::uint16_t projectedSystem = 3072;
constexpr std::uint16_t projectedUnit = 3076;
constexpr std::uint16_t verticalSystem = 4096;
constexpr std::uint16_t verticalCitation = 4097;
constexpr std::uint16_t verticalUnit = 4099;
/// The range of the keys of vertical systems.
constexpr std::uint16_t firstVertical = 4096;
constexpr std::uint16_t lastVertical = 5119;
} // namespace Key

namespace Model {
constexpr std::uint16_t projected = 1;
constexpr std::uint16_t geographic = 2;
constexpr std::uint16_t geocentric = 3;
} // namespace Model

constexpr std::uint16_t pixelIsArea = 1;
constexpr std::uint16_t undefined = 0;
constexpr std::uint16_t userDefined = 32767;
/// Values from here on, below userDefined, are codes of systems in the EPSG register.
constexpr std::uint16_t firstEpsgCode = 1024;

/// GeoTIFF 1.0 names some vertical systems by the codes of their datums; EPSG has the systems themselves 600 further on.
constexpr std::uint16_t firstVerticalDatum = 5101;
constexpr std::uint16_t lastVerticalDatum = 5106;
constexpr std::uint16_t fromVerticalDatumToSystem = 600;

} // namespace Formats::GeoTiff
