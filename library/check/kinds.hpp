// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <string_view>

/// The kinds of findings; docs/check.md explains them.
namespace Tidewatch::Kind {

inline constexpr std::string_view file = "file";
inline constexpr std::string_view format = "format";
inline constexpr std::string_view notChecked = "not-checked";
inline constexpr std::string_view header = "header";
inline constexpr std::string_view records = "records";
inline constexpr std::string_view extraBytes = "extra-bytes";
inline constexpr std::string_view compression = "compression";
inline constexpr std::string_view points = "points";
inline constexpr std::string_view pointCount = "point-count";
inline constexpr std::string_view countsByReturn = "counts-by-return";
inline constexpr std::string_view box = "box";
inline constexpr std::string_view looseBox = "loose-box";
inline constexpr std::string_view coordinateStep = "coordinate-step";
inline constexpr std::string_view unusedBytes = "unused-bytes";
inline constexpr std::string_view undescribedBytes = "undescribed-bytes";
inline constexpr std::string_view extraBytesNames = "extra-bytes-names";
inline constexpr std::string_view creationDay = "creation-day";
inline constexpr std::string_view globalEncoding = "global-encoding";
inline constexpr std::string_view classes = "classes";
inline constexpr std::string_view returnNumbers = "return-numbers";
inline constexpr std::string_view scanAngles = "scan-angles";
inline constexpr std::string_view scanAngleUnit = "scan-angle-unit";
inline constexpr std::string_view colorDepth = "color-depth";
inline constexpr std::string_view shiftedAttributes = "shifted-attributes";
inline constexpr std::string_view gpsTime = "gps-time";
inline constexpr std::string_view noSystem = "no-system";
inline constexpr std::string_view unreadableSystem = "unreadable-system";
inline constexpr std::string_view systemForm = "system-form";
inline constexpr std::string_view values = "values";
inline constexpr std::string_view notFinite = "not-finite";
inline constexpr std::string_view cells = "cells";
inline constexpr std::string_view cellSize = "cell-size";
inline constexpr std::string_view characters = "characters";
inline constexpr std::string_view severalGrids = "several-grids";
inline constexpr std::string_view noData = "no-data";
inline constexpr std::string_view structure = "structure";
inline constexpr std::string_view array = "array";
inline constexpr std::string_view arrayLength = "array-length";

inline constexpr std::array all{
    file,           format,        notChecked,       header,          records,     extraBytes,
    compression,    points,        pointCount,       countsByReturn,  box,         looseBox,
    coordinateStep, unusedBytes,   undescribedBytes, extraBytesNames, creationDay, globalEncoding,
    classes,        returnNumbers, scanAngles,       scanAngleUnit,   colorDepth,  shiftedAttributes,
    gpsTime,        noSystem,      unreadableSystem, systemForm,      values,      notFinite,
    cells,          cellSize,      characters,       severalGrids,    noData,      structure,
    array,          arrayLength};

} // namespace Tidewatch::Kind
