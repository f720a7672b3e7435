// SPDX-License-Identifier: Apache-2.0
#include "library/view/PointClasses.hpp"

#include <iterator>

namespace Tidewatch {

namespace {

struct PointClass {
    std::string_view name;
    ViewColor color;
};

// LAS 1.4 R15, table 17. The colours, which the table does not define, are those usual on maps.
constexpr PointClass classes[] = {
    {"Created, Never Classified", {170, 170, 170}},
    {"Unclassified", {196, 190, 178}},
    {"Ground", {160, 120, 79}},
    {"Low Vegetation", {150, 190, 96}},
    {"Medium Vegetation", {92, 158, 70}},
    {"High Vegetation", {42, 118, 52}},
    {"Building", {206, 92, 64}},
    {"Low Point (Noise)", {232, 60, 200}},
    {"Reserved (Model Key-Point)", {120, 96, 150}},
    {"Water", {47, 127, 193}},
    {"Rail", {90, 84, 96}},
    {"Road Surface", {122, 128, 138}},
    {"Reserved (Overlap)", {214, 176, 60}},
    {"Wire - Guard (Shield)", {240, 200, 40}},
    {"Wire - Conductor (Phase)", {250, 160, 30}},
    {"Transmission Tower", {84, 60, 140}},
    {"Wire-Structure Connector", {150, 110, 210}},
    {"Bridge Deck", {176, 140, 116}},
    {"High Noise", {255, 50, 90}},
    {"Overhead Structure", {104, 150, 160}},
    {"Ignored Ground", {196, 158, 112}},
    {"Snow", {226, 238, 248}},
    {"Temporal Exclusion", {140, 140, 96}},
};

constexpr std::uint8_t firstUserClass = 64;

} // namespace

std::string_view pointClassName(std::uint8_t code) noexcept {
    if (code < std::size(classes))
        return classes[code].name;
    return code < firstUserClass ? "Reserved" : "User Definable";
}

ViewColor pointClassColor(std::uint8_t code) noexcept {
    if (code < std::size(classes))
        return classes[code].color;
    // Consecutive codes get very different hues: steps of the golden ratio around the colour circle.
    const int hue = code * 379 % 613 * 1530 / 613;
    const int phase = hue / 255;
    const auto rising = static_cast<std::uint8_t>(60 + hue % 255 * 160 / 255);
    const auto falling = static_cast<std::uint8_t>(280 - rising);
    constexpr std::uint8_t low = 60;
    constexpr std::uint8_t high = 220;
    switch (phase) {
    case 0:
        return {high, rising, low};
    case 1:
        return {falling, high, low};
    case 2:
        return {low, high, rising};
    case 3:
        return {low, falling, high};
    case 4:
        return {rising, low, high};
    default:
        return {high, low, falling};
    }
}

} // namespace Tidewatch
