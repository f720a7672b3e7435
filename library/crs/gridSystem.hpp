// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/GridAdditions.hpp"
#include "library/crs/ReferenceSystem.hpp"
#include "sheaf/Bundle.hpp"

#include <optional>
#include <string>
#include <vector>

/// Coordinate reference systems of the grids of a bundle, and what of them goes into files.
namespace Tidewatch {

/// What is known of a grid's system, which is that of its default chart.
struct GridSystem {
    /// As well-known text; empty where there is none.
    std::string text = {};
    /// Nothing where PROJ cannot read the text.
    std::optional<ReferenceSystem> system = {};
    /// What the keys of the file that it comes from state besides, and nobody reads here; empty where that is nothing.
    std::string unreadable = {};

    /// Whether the grid has a system, be it one that nobody reads.
    [[nodiscard]] bool isThere() const noexcept { return !text.empty() || !unreadable.empty(); }
    /// For people.
    [[nodiscard]] std::string title() const;

    [[nodiscard]] static GridSystem of(const Sheaf::Grid& grid);
};

/// Gives charts without a system the one that the GeoTIFF keys among a grid's records state.
void completeSystems(Sheaf::Bundle& bundle);

/// A system that a user asks for.
struct WantedSystem {
    /// Well-known text; empty removes the system.
    std::string text;
};

/// Reads what `--crs` takes: codes such as "EPSG:25832+5783", the path of a file of well-known text, or "none". Throws
/// UsageError where it is none of these.
[[nodiscard]] WantedSystem wantedSystem(const std::string& text);

/// Gives all charts of a bundle a system, or takes theirs. Nothing is transformed. Gives what is to be said of systems
/// that were replaced or removed, one text each.
[[nodiscard]] std::vector<std::string> setSystem(Sheaf::Bundle& bundle, const WantedSystem& wanted);

/// What a system becomes in files of one kind.
struct WrittenSystem {
    ConvLib::GridAdditions additions = {};
    /// What is worth knowing; empty for nothing.
    std::string note = {};
    /// Why files do not state it, or not all of it; empty where they do.
    std::string loss = {};
};

/// In LAS 1.`version`: well-known text in 1.4, GeoTIFF keys before. Records that were read go along as they are where
/// they state the system and the version has them.
[[nodiscard]] WrittenSystem systemForLas(const Sheaf::Grid& grid, int version);

/// As a .prj file, in ESRI's well-known text.
[[nodiscard]] WrittenSystem systemForPrj(const Sheaf::Grid& grid);

} // namespace Tidewatch
