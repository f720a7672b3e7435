// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/crs/ReferenceSystem.hpp"
#include "sheaf/FileRecord.hpp"

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Tidewatch {

/// The system that GeoTIFF keys in the records of a LAS file state (LAS 1.4 R15, "GeoKeyDirectoryTag
/// Record"): one with codes of the EPSG register or, if built with GDAL, a user-defined one, which GDAL reads
/// in a separate process, once for the same keys.
struct GeoKeys {
    /// Whether there are any keys.
    bool areThere = false;
    /// Nothing if there is none, or it cannot be read.
    std::optional<ReferenceSystem> system = {};
    /// The part that cannot be read, for messages: "a user-defined projection". `system` is then what
    /// remains.
    std::string unreadable = {};

    [[nodiscard]] static GeoKeys read(std::span<const Sheaf::FileRecord> records);

    /// The record that states a system; nothing if keys cannot express it: a part has no code, or is of an
    /// unsupported kind.
    [[nodiscard]] static std::optional<Sheaf::FileRecord> write(const ReferenceSystem& system);
};

} // namespace Tidewatch
