// SPDX-License-Identifier: Apache-2.0
#include "pcd/addPCDHeader.hpp"

#include "convlib/NumberText.hpp"
#include "pcd/PcdPrecision.hpp"

#include <ostream>
#include <string_view>

namespace ExportLib {

namespace {

constexpr std::string_view titleLine = "# .PCD v.7 - Point Cloud Data file format\n";

std::string shiftText(const Geom::PhysicalSpace::vector& shift) {
    std::string text;
    for (const double component : {shift.x, shift.y, shift.z}) {
        char number[ConvLib::generalTextSize(pcdShiftDigits)];
        if (!text.empty())
            text += ' ';
        text.append(number, ConvLib::appendGeneral(number, component, pcdShiftDigits));
    }
    return text;
}

void write(std::ofstream& out, std::string_view text, bool flushLines) {
    out.precision(pcdShiftDigits);
    while (!text.empty()) {
        const std::string_view piece = flushLines ? text.substr(0, text.find('\n') + 1) : text;
        out.write(piece.data(), static_cast<std::streamsize>(piece.size()));
        if (flushLines)
            out.flush();
        text.remove_prefix(piece.size());
    }
}

} // namespace

std::string pcdHeaderCommon(const Geom::PhysicalSpace::vector& shift) {
    std::string text(titleLine);
    text += "# exported by Tidewatch\n";
    // The blank after the last component is part of the line.
    text += "# shifted by " + shiftText(shift) + " \n";
    text += "VERSION .7\n";
    return text;
}

std::string pcdHeader(PCDLayout layout, std::uint64_t pointCount, const Geom::PhysicalSpace::vector& shift) {
    const std::string count = std::to_string(pointCount);
    std::string text = pcdHeaderCommon(shift);
    if (layout == PCDLayout::Intensity) {
        // This layout has always had its title twice. Files are compared byte by byte with earlier exports,
        // and readers skip comment lines, so it stays.
        text += titleLine;
        text += "FIELDS x y z intensity rgb\n"
                "SIZE 4 4 4 4 4\n"
                "TYPE F F F F F\n"
                "COUNT 1 1 1 1 1\n";
    } else {
        text += "FIELDS x y z\n"
                "SIZE 4 4 4\n"
                "TYPE F F F\n"
                "COUNT 1 1 1\n";
    }
    text += "WIDTH " + count + "\n";
    text += "HEIGHT 1\n";
    // The rotation is the identity: w x y z.
    text += "VIEWPOINT " + shiftText(shift) + " 1 0 0 0\n";
    text += "POINTS " + count + "\n";
    text += "DATA ascii\n";
    return text;
}

void addPCDHeaderCommon(std::ofstream& out, const Geom::PhysicalSpace::vector& shift, bool flushLines) {
    write(out, pcdHeaderCommon(shift), flushLines);
}

void addPCDHeaderPlain(std::ofstream& out, std::uint64_t pointCount, const Geom::PhysicalSpace::vector& shift,
                       bool flushLines) {
    write(out, pcdHeader(PCDLayout::Plain, pointCount, shift), flushLines);
}

void addPCDHeaderIntensity(std::ofstream& out, std::uint64_t pointCount,
                           const Geom::PhysicalSpace::vector& shift, bool flushLines) {
    write(out, pcdHeader(PCDLayout::Intensity, pointCount, shift), flushLines);
}

} // namespace ExportLib
