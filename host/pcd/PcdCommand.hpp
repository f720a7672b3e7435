// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host/export/Export.hpp"

namespace Tidewatch {

/// `tidewatch pcd`: the settings are those of ExportLib::ExportPointCloudToPCD, and so are their defaults.
struct PcdRequest {
    PcdRequest();

    ExportOptions common;
    int refinementLevel;
    int precision;
    double cellSize;
    bool exactCounts;

    /// Gives the exit status; see runExport().
    [[nodiscard]] int run() const;
};

} // namespace Tidewatch
