// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/export/Export.hpp"

#include <memory>
#include <optional>

namespace Tidewatch {

/// An export to PCD. The settings and their defaults are those of ExportLib::ExportPointCloudToPCD.
struct TIDEWATCH_API PcdOptions : ExportOptions {
    PcdOptions();

    int refinementLevel;
    int precision;
    /// Nothing stands for the exporter's default; then points that are thinned out are a loss.
    std::optional<double> cellSize = {};
    bool exactCounts;
    bool thinning;
};

/// The format for an Export.
[[nodiscard]] TIDEWATCH_API std::unique_ptr<const ExportFormat> pcdFormat(const PcdOptions& options);

/// Writes the selected grids of the inputs as PCD and puts the files in place, see Export::placeUnlessRefused().
TIDEWATCH_API ExportReport exportPcd(const Inputs& inputs, const PcdOptions& options,
                                     const Anchor::StrongPtr<Progress>& progress = {});

} // namespace Tidewatch
