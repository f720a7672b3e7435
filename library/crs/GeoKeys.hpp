// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/crs/ReferenceSystem.hpp"
#include "sheaf/FileRecord.hpp"

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Tidewatch {

/// What GeoTIFF keys in the records of a LAS file state (LAS 1.4 R15, "GeoKeyDirectoryTag Record"): systems with codes
/// of the EPSG register, and where this was built with GDAL, user-defined ones, for which GDAL is asked in a process of
/// its own, once for the same keys.
struct GeoKeys {
    /// Whether there are any.
    bool areThere = false;
    /// Nothing where there is none, or it cannot be read.
    std::optional<ReferenceSystem> system = {};
    /// What of it cannot be read, for people: "a user-defined projection". Then the system is what is left.
    std::string unreadable = {};

    [[nodiscard]] static GeoKeys read(std::span<const Sheaf::FileRecord> records);

    /// The record that states a system; nothing where keys cannot: it has a part without a code, or of no kind of theirs.
    [[nodiscard]] static std::optional<Sheaf::FileRecord> write(const ReferenceSystem& system);
};

} // namespace Tidewatch
