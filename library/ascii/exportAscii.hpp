// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ascii/AsciiPlan.hpp"
#include "geom/MultiRange.hpp"
#include "library/export/Export.hpp"

#include <memory>
#include <vector>

namespace Tidewatch {

using ExportLib::AsciiSettings;

/// An export to text. The settings and their defaults are those of ExportLib::ExportPointCloudToASCII. The output is a
/// folder.
struct TIDEWATCH_API AsciiOptions : ExportOptions {
    AsciiOptions();

    AsciiSettings settings;
    /// The accepted cell types; if empty, the exporter's default, which accepts all.
    std::vector<Geom::MultiRange<double>::Range> cellTypes;
};

/// The format for an Export.
[[nodiscard]] TIDEWATCH_API std::unique_ptr<const ExportFormat> asciiFormat(const AsciiOptions& options);

/// Writes the selected grids of the inputs as text and puts the files in place, see Export::placeUnlessRefused().
TIDEWATCH_API ExportReport exportAscii(const Inputs& inputs, const AsciiOptions& options,
                                       const Anchor::StrongPtr<Progress>& progress = {});

} // namespace Tidewatch
