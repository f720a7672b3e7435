// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/LasFileBuilder.hpp"

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace Support {

/// A TIFF file of one pixel with the GeoTIFF keys of a LAS file's record 34735, so that readers of GeoTIFF can say what
/// they state (TIFF 6.0, section 2; OGC GeoTIFF 1.1, annex B).
[[nodiscard]] inline std::string tiffWithKeys(const std::string& directory) {
    struct Entry {
        std::uint16_t tag;
        std::uint16_t type; // 3: 16 bits, 12: a double
        std::string values;
    };
    const auto shorts = [](std::vector<std::uint16_t> numbers) {
        std::string bytes;
        for (const std::uint16_t number : numbers)
            append(bytes, number);
        return bytes;
    };
    const auto doubles = [](std::vector<double> numbers) {
        std::string bytes;
        for (const double number : numbers)
            append(bytes, number);
        return bytes;
    };
    constexpr std::uint16_t pixelPlace = 8;
    const std::vector<Entry> entries{{256, 3, shorts({1})},
                                     {257, 3, shorts({1})},
                                     {258, 3, shorts({8})},
                                     {259, 3, shorts({1})},
                                     {262, 3, shorts({1})},
                                     {273, 3, shorts({pixelPlace})},
                                     {277, 3, shorts({1})},
                                     {278, 3, shorts({1})},
                                     {279, 3, shorts({1})},
                                     {33550, 12, doubles({1, 1, 0})},
                                     {33922, 12, doubles({0, 0, 0, 5, 50, 0})},
                                     {34735, 3, directory}};
    std::string bytes = "II";
    append(bytes, std::uint16_t{42});
    append(bytes, std::uint32_t{10});
    append(bytes, std::uint16_t{7}); // the pixel, and a byte that keeps places even
    append(bytes, static_cast<std::uint16_t>(entries.size()));
    const std::size_t dataPlace = bytes.size() + entries.size() * 12 + 4;
    std::string data;
    for (const Entry& entry : entries) {
        append(bytes, entry.tag);
        append(bytes, entry.type);
        append(bytes, static_cast<std::uint32_t>(entry.values.size() / (entry.type == 3 ? 2 : 8)));
        if (entry.values.size() <= 4) {
            bytes += entry.values + std::string(4 - entry.values.size(), '\0');
        } else {
            append(bytes, static_cast<std::uint32_t>(dataPlace + data.size()));
            data += entry.values;
        }
    }
    append(bytes, std::uint32_t{0});
    return bytes + data;
}

} // namespace Support
