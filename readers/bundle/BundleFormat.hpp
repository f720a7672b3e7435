// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <cstddef>

/// The names used in bundle files, and the limits that both the reader and the writer enforce.
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
inline constexpr const char* records = "records";

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
inline constexpr const char* referenceSystem = "crs";
inline constexpr const char* coordinateStep = "step";
inline constexpr const char* coordinateOffset = "offset";
inline constexpr const char* gpsTime = "gps_time";
inline constexpr const char* gpsTimeOfWeek = "week";
inline constexpr const char* gpsTimeAdjusted = "adjusted";
inline constexpr const char* fileSourceId = "file_source_id";
inline constexpr const char* systemIdentifier = "system_identifier";
inline constexpr const char* userId = "user_id";
inline constexpr const char* recordId = "record_id";
inline constexpr const char* description = "description";
inline constexpr const char* lasAttribute = "las_attribute";

/// The longest texts, in bytes; those of real reference systems have some kilobytes.
inline constexpr std::size_t longestText = 65536;
inline constexpr std::size_t longestReferenceSystem = std::size_t{1} << 20;

/// Whether this is a valid spacing of a uniform grid along an axis, even an axis with a single layer.
[[nodiscard]] inline bool isSpacing(double step) noexcept {
    return std::isfinite(step) && step > 0;
}

} // namespace Tidewatch::BundleFormat
