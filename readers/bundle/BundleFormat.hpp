// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>

/// The names that bundle files use, and what both the reader and the writer demand.
namespace Tidewatch::BundleFormat {

inline constexpr const char* formatName = "tidewatch-bundle";
inline constexpr int version = 1;

// Groups.
inline constexpr const char* slices = "slices";
inline constexpr const char* grids = "grids";
inline constexpr const char* charts = "charts";
inline constexpr const char* fragments = "fragments";
inline constexpr const char* skeletons = "skeletons";
inline constexpr const char* representations = "representations";

// Attributes.
inline constexpr const char* formatAttribute = "format";
inline constexpr const char* versionAttribute = "version";
inline constexpr const char* time = "time";
inline constexpr const char* overlapLow = "overlap_low";
inline constexpr const char* overlapHigh = "overlap_high";
inline constexpr const char* dimension = "dimension";
inline constexpr const char* refinement = "refinement";
inline constexpr const char* excluded = "excluded";
inline constexpr const char* element = "element";
inline constexpr const char* kind = "kind";
inline constexpr const char* uniformKind = "uniform";
inline constexpr const char* origin = "origin";
inline constexpr const char* spacing = "spacing";
inline constexpr const char* extents = "extents";

/// Whether the places of a uniform grid can lie so far apart along an axis. That holds for a single layer
/// too.
[[nodiscard]] inline bool isSpacing(double step) noexcept {
    return std::isfinite(step) && step > 0;
}

} // namespace Tidewatch::BundleFormat
