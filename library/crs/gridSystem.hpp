// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/GridAdditions.hpp"
#include "library/crs/ReferenceSystem.hpp"
#include "sheaf/Bundle.hpp"

#include <optional>
#include <string>
#include <vector>

/// Coordinate reference systems of the grids of a bundle, and how they are written to files.
namespace Tidewatch {

/// The system of a grid, which is that of its default chart.
struct TIDEWATCH_API GridSystem {
    /// As well-known text; empty if there is none.
    std::string text = {};
    /// Nothing if PROJ cannot read the text.
    std::optional<ReferenceSystem> system = {};
    /// What the GeoTIFF keys state that cannot be read; empty if nothing.
    std::string unreadable = {};

    /// Whether the grid has a system, even one that cannot be read.
    [[nodiscard]] bool isThere() const noexcept { return !text.empty() || !unreadable.empty(); }
    /// For messages.
    [[nodiscard]] std::string title() const;

    [[nodiscard]] static GridSystem of(const Sheaf::Grid& grid);
};

/// Sets the system of charts without one from the GeoTIFF keys among the grid's records.
void completeSystems(Sheaf::Bundle& bundle);

/// The system requested by a user.
struct WantedSystem {
    /// Well-known text; empty removes the system.
    std::string text;
};

/// Parses the value of `--crs`: codes such as "EPSG:25832+5783", the path of a file of well-known text, or
/// "none". Throws UsageError for anything else.
[[nodiscard]] TIDEWATCH_API WantedSystem wantedSystem(const std::string& text);

/// Sets the system of all charts of a grid, and leaves out the records that state another one. Nothing is transformed.
TIDEWATCH_API void setSystem(Sheaf::Grid& grid, const WantedSystem& wanted);

/// Sets or removes the system of all charts of a bundle. Nothing is transformed. Returns notes on systems
/// that were replaced or removed, one text each.
[[nodiscard]] std::vector<std::string> setSystem(Sheaf::Bundle& bundle, const WantedSystem& wanted);

/// How a system is written to a file.
struct WrittenSystem {
    ConvLib::GridAdditions additions = {};
    /// A note for users; may be empty.
    std::string note = {};
    /// Why files do not state it, or only part of it; empty if they do.
    std::string loss = {};
};

/// In LAS 1.`version`: well-known text in 1.4, GeoTIFF keys before. Records from the input are copied if they
/// state the system and the version supports them.
[[nodiscard]] WrittenSystem systemForLas(const Sheaf::Grid& grid, int version);

/// As a .prj file, in ESRI's well-known text.
[[nodiscard]] WrittenSystem systemForPrj(const Sheaf::Grid& grid);

} // namespace Tidewatch
