// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "formats/las/layout.hpp"

#include <cstdint>
#include <string_view>

namespace Formats::Las {

/// The user ids of records that readers and writers know (LAS 1.4 R15, "Variable Length Records").
constexpr std::string_view projectionUser = "LASF_Projection";
constexpr std::string_view specificationUser = "LASF_Spec";
constexpr std::string_view laszipUser = "laszip encoded";

/// Whether a record describes how points are stored in its own file, so that it would be wrong in any other:
/// descriptions of compression and extra bytes, waveforms, spatial indexes, and records that are marked as
/// superseded.
constexpr bool isBoundToItsFile(std::string_view userId, std::uint16_t recordId) noexcept {
    constexpr std::uint16_t superseded = 7;
    constexpr std::uint16_t firstWaveform = 100;
    constexpr std::uint16_t lastWaveform = 354;
    constexpr std::uint16_t waveformPackets = 65535;
    constexpr std::uint16_t spatialIndex = 30;
    if (userId == specificationUser)
        return recordId == extraBytesId || recordId == superseded || recordId == waveformPackets ||
               (recordId >= firstWaveform && recordId <= lastWaveform);
    return userId == laszipUser || userId == "copc" || (userId == "LAStools" && recordId == spatialIndex);
}

/// Whether a record states the coordinate reference system.
constexpr bool isOfReferenceSystem(std::string_view userId, std::uint16_t recordId) noexcept {
    return userId == projectionUser &&
           (recordId == geoKeyDirectoryId || recordId == geoDoublesId || recordId == geoTextsId ||
            recordId == mathTransformId || recordId == wellKnownTextId);
}

} // namespace Formats::Las
