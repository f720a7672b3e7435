// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <string>

namespace Tidewatch {

/// The settings of the LAS exporter that decide what reaches its files.
struct LasSettings {
    /// The minor version: 2, 3 or 4.
    int version = 4;
    /// One file a fragment.
    bool tiles = false;
    /// Plain LAS files instead of LAZ.
    bool uncompressed = false;
    /// Given to every point where it is greater than 0.
    int pointSourceID = 0;
    /// From fields to attributes, complete.
    std::map<std::string, std::string> renames;

    /// Whether points have the wider attributes of LAS 1.4.
    [[nodiscard]] bool isExtended() const noexcept { return version == 4; }
};

} // namespace Tidewatch
