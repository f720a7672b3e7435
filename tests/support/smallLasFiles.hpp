// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/LazAssembly.hpp"

#include <map>
#include <string>

namespace Support {

/// Small valid files (up to 4 KiB) of every kind that the reader tells apart, by a short name: to be damaged
/// byte by byte, and as seeds for fuzzing.
[[nodiscard]] inline std::map<std::string, std::string> smallLasFiles() {
    const auto builder = [](unsigned minor, unsigned format, std::size_t count) {
        LasFileBuilder file;
        file.minor = minor;
        file.format = format;
        file.addVariedPoints(count);
        return file;
    };
    const auto described = [&](unsigned minor, unsigned format, std::size_t count) {
        LasFileBuilder file;
        file.minor = minor;
        file.format = format;
        file.extraByteCount = 5;
        file.describe(LasFileBuilder::attribute(3, "Amplitude") +
                      LasFileBuilder::attribute(2, "Reflectance", 24, 0.5, -3));
        file.addVariedPoints(count);
        return file;
    };
    LasFileBuilder withRecords = builder(4, 6, 4);
    withRecords.vlrs.push_back({"LASF_Projection", 2112, "PROJCS[]"});
    withRecords.evlrs.push_back({"LASF_Projection", 34735, std::string(16, '\1')});

    std::map<std::string, std::string> files;
    files["las10format0"] = builder(0, 0, 6).build();
    files["las12format3extra"] = described(2, 3, 6).build();
    files["las13format5"] = builder(3, 5, 4).build();
    files["las14format6records"] = withRecords.build();
    files["las14format10"] = builder(4, 10, 4).build();
    files["laz12format1"] = compressLas(builder(2, 1, 24), 10);
    files["laz12format3extra"] = compressLas(described(2, 3, 12), 50000);
    files["laz13format4"] = compressLas(builder(3, 4, 10), 50000);
    files["laz14format6"] = compressLas(builder(4, 6, 24), 10);
    files["laz14format7extra"] = compressLas(described(4, 7, 12), 50000);
    files["laz14format10"] = compressLas(builder(4, 10, 12), 50000);
    files["laz12format2stream"] = LazAssembly::make(builder(2, 2, 20), {20}).buildStream();
    files["laz14format8variable"] = LazAssembly::make(builder(4, 8, 20), {3, 12, 5}).buildVariable();
    files["laz12format0empty"] = compressLas(builder(2, 0, 0));
    return files;
}

} // namespace Support
