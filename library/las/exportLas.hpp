// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/export/Export.hpp"

#include <array>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace Tidewatch {

/// An export to LAS or LAZ. The settings and their defaults are those of ExportLib::ExportPointCloudToLas.
struct TIDEWATCH_API LasOptions : ExportOptions {
    LasOptions();

    int day;
    int year;
    /// The minor version: 2, 3 or 4.
    int version;
    bool tiles;
    /// Plain LAS; also implied by an output that ends in ".las".
    bool uncompressed;
    /// 0 to 65535.
    int pointSourceID;
    /// From fields to attributes, including the exporter's default entries.
    std::map<std::string, std::string> renames;
    /// Whether grids are carried whole, their coordinate reference system included, and files conform to LAS 1.4 R15;
    /// without both, files are what the exporter writes by itself.
    bool carry = true;
    bool conforming = true;
    /// Of coordinates, x first; see the exporter.
    std::optional<std::array<double, 3>> step = {};
    std::optional<std::array<double, 3>> offset = {};
    /// Decode every file and compare it before it is put in place.
    bool verify = false;

    /// Makes files what the exporter writes by itself. Throws UsageError for options that exclude that.
    void setPlain(const InputOptions& inputs);
};

/// The format for an Export.
[[nodiscard]] TIDEWATCH_API std::unique_ptr<const ExportFormat> lasFormat(const LasOptions& options);

/// Writes the selected grids of the inputs as LAS or LAZ and puts the files in place, see Export::placeUnlessRefused().
TIDEWATCH_API ExportReport exportLas(const Inputs& inputs, const LasOptions& options,
                                     const Anchor::StrongPtr<Progress>& progress = {});

} // namespace Tidewatch
