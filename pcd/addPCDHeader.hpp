// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "geom/PhysicalSpace.hpp"

#include <cstdint>
#include <fstream>
#include <string>

namespace ExportLib {

/// The header of a PCD file, version .7, data in text ("The PCD (Point Cloud Data) file format" of the Point
/// Cloud Library), with the shift that was subtracted from all coordinates: in a comment for people, and as
/// the translation of VIEWPOINT for programs. The shift is written with eight significant digits, so one with
/// more digits is rounded.
enum class PCDLayout {
    /// Fields x y z.
    Plain,
    /// Fields x y z intensity rgb.
    Intensity
};

/// The four lines with which both layouts start.
[[nodiscard]] std::string pcdHeaderCommon(const Geom::PhysicalSpace::vector& shift);

/// The whole header of a layout for a number of points.
[[nodiscard]] std::string pcdHeader(PCDLayout layout, std::uint64_t pointCount,
                                    const Geom::PhysicalSpace::vector& shift);

/// Writes the common lines. Like the two functions below it flushes after each line unless told otherwise,
/// leaves the stream's precision at 8, and leaves the stream's state to the caller.
void addPCDHeaderCommon(std::ofstream& out, const Geom::PhysicalSpace::vector& shift, bool flushLines = true);

/// Writes the header of the plain layout.
void addPCDHeaderPlain(std::ofstream& out, std::uint64_t pointCount, const Geom::PhysicalSpace::vector& shift,
                       bool flushLines = true);

/// Writes the header of the layout with intensity and colour.
void addPCDHeaderIntensity(std::ofstream& out, std::uint64_t pointCount,
                           const Geom::PhysicalSpace::vector& shift, bool flushLines = true);

} // namespace ExportLib
