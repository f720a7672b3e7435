// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sheaf/FileRecord.hpp"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Sheaf {

/// What the file that a grid comes from states beside its fields, as far as it states it. Exporters whose format has
/// places for it pass it on where their settings ask for that; nothing in a bundle depends on it.
struct FileStatement {
    /// What GPS times count from: the beginning of the GPS week, or 10^9 seconds after the GPS epoch.
    enum class GpsTime : std::uint8_t { Week, Adjusted };

    /// How the file stores coordinates, x first: as integers, times a step, plus an offset, in coordinate units. Steps
    /// are finite and greater than 0, offsets finite.
    std::optional<std::array<double, 3>> step = {};
    std::optional<std::array<double, 3>> offset = {};
    std::optional<GpsTime> gpsTime = {};
    /// The number of the file in its project; 0 stands for none.
    std::optional<std::uint16_t> fileSourceId = {};
    /// What the data was made with.
    std::optional<std::string> systemIdentifier = {};
    /// Records that tell nothing about how points are stored, in the file's order; those of its reference system are
    /// among them.
    std::vector<FileRecord> records = {};

    friend bool operator==(const FileStatement&, const FileStatement&) = default;
};

} // namespace Sheaf
