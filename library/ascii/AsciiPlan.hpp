// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/input/Filters.hpp"
#include "sheaf/Grid.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Tidewatch {

/// The settings of the ASCII exporter that decide what goes where.
struct AsciiSettings {
    std::string filterField;
    int refinementLevel;
    unsigned int precision;
    bool append;
    bool tileSuffix;
};

/// A fragment of a field at which the ASCII exporter stops.
struct AsciiStop {
    std::string field;
    /// May be null.
    Anchor::StrongPtr<Sheaf::FragmentID> fragment;
    Sheaf::Field::Creator data;
    std::uint64_t elements = 0;
    /// What holds the field; lives as long as the bundle.
    const Sheaf::Representation* representation = nullptr;
    /// The positions of the fragment where they are a uniform lattice, else null.
    Anchor::StrongPtr<Sheaf::UniformCartesianArray> lattice;
    /// Whether the exporter takes the skeleton; what it does not take is counted and passed over.
    bool isSelected = false;
    /// Whether the input marks the skeleton as not to be exported.
    bool isExcluded = false;
    /// Where the file goes, relative to the output folder and without its extension.
    std::filesystem::path path;

    [[nodiscard]] const std::type_info& type() const { return data->elementType(); }
    [[nodiscard]] bool isNumber() const;

    /// Why no file is written; empty where one is, and for positions that the header of a grid tells.
    [[nodiscard]] std::string whyLeftOut() const;
    /// Whether a file is written for it.
    [[nodiscard]] bool isWritten() const;
    /// The file, as far as it can be told beforehand: the names of tiles cannot.
    [[nodiscard]] std::optional<std::filesystem::path> file(const AsciiSettings& settings) const;
};

/// What the ASCII exporter does with a grid.
struct AsciiPlan {
    /// Why there is nothing to export; empty where there is.
    std::string obstacle;
    /// Every stop that the field filter lets pass, in the exporter's order.
    std::vector<AsciiStop> stops;

    [[nodiscard]] static AsciiPlan of(const Sheaf::Grid& grid, Selection& selection,
                                      const AsciiSettings& settings);
};

} // namespace Tidewatch
