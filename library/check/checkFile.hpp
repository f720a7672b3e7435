// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/Progress.hpp"
#include "library/check/CheckReport.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace Tidewatch {

struct CheckOptions {
    /// The most memory in bytes for the arrays of bundle files and rasters, as in InputOptions.
    std::optional<std::uint64_t> memoryLimit = {};
    /// As in InputOptions.
    bool requiresSandbox = false;
};

/// Checks whether a file is what its format says, reading all of it once, piece by piece: LAS and LAZ files, PCD files,
/// ESRI ASCII grids, and whatever the registered readers read, such as bundle files. What a file is its content says.
/// docs/check.md lists the findings. `progress` may be null.
///
/// What is wrong with the file is in the report; throws only what `progress` throws.
[[nodiscard]] TIDEWATCH_API CheckReport checkFile(const std::string& path, const CheckOptions& options = {},
                                                  const Anchor::StrongPtr<Progress>& progress = {});

} // namespace Tidewatch
