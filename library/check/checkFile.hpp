// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/Progress.hpp"
#include "library/check/CheckReport.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace Tidewatch {

struct CheckOptions {
    /// The max memory in bytes for the arrays of bundle files and rasters, as in InputOptions.
    std::optional<std::uint64_t> memoryLimit = {};
    /// As in InputOptions.
    bool requiresSandbox = false;
};

/// Checks whether a file conforms to its format, reading it once, piece by piece: LAS and LAZ files, PCD
/// files, ESRI ASCII grids, and whatever the registered readers read, such as bundle files. The format is
/// detected by content. docs/check.md lists the findings. `progress` may be null; the file is all of its current part.
///
/// Errors of the file are in the report; throws only what `progress` throws.
[[nodiscard]] TIDEWATCH_API CheckReport checkFile(const std::string& path, const CheckOptions& options = {},
                                                  const Anchor::StrongPtr<Progress>& progress = {});

} // namespace Tidewatch
