// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/export/RunRecorder.hpp"
#include "library/report/Losses.hpp"
#include "sheaf/Bundle.hpp"

namespace Tidewatch {

/// What files carry of a grid beside its fields.
struct KeptProperties {
    bool referenceSystem = false;
    bool gpsTimeEncoding = false;
    bool records = false;
    bool fileSourceId = false;
};

/// What of the rest a grid has.
void addPropertyLosses(const ExportedGrid& exported, const Sheaf::Bundle& bundle, const KeptProperties& kept,
                       Losses& losses);

/// The grid that was exported; null where it is gone.
[[nodiscard]] Anchor::StrongPtr<Sheaf::Grid> findGrid(const Sheaf::Bundle& bundle,
                                                      const ExportedGrid& exported);

} // namespace Tidewatch
