// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "geom/MultiRange.hpp"
#include "host/ascii/AsciiPlan.hpp"
#include "host/export/Export.hpp"

#include <vector>

namespace Tidewatch {

/// `tidewatch ascii`: the settings are those of ExportLib::ExportPointCloudToASCII, and so are their
/// defaults.
struct AsciiRequest {
    AsciiRequest();

    ExportOptions common;
    AsciiSettings settings;
    /// The accepted cell types; none stand for the exporter's default, which accepts all.
    std::vector<Geom::MultiRange<double>::Range> cellTypes;

    /// Gives the exit status; see runExport().
    [[nodiscard]] int run() const;
};

} // namespace Tidewatch
