// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/raster/LentFiles.hpp"

#include <string>

namespace Tidewatch::Raster {

/// GDAL's names of the formats that are read, ended by a null pointer.
///
/// A list of what is allowed, since GDAL learns new formats with every release: those whose files hold their
/// pixels themselves and whose companions, if any, have the file's own name with another ending. What leads
/// elsewhere by a path or an address inside the file (virtual rasters, headers that name their data, services
/// on the network, containers of other files) would let a file from a stranger read files of whoever opens
/// it.
[[nodiscard]] const char* const* readableDrivers() noexcept;

/// Lets GDAL look for its drivers, once a process.
void registerDrivers();

/// The readable driver that recognises the first of some files by its content, or nothing.
[[nodiscard]] std::string readableDriverOf(const LentFiles& files);

/// The driver of a usual format that leads to other files, where it recognises the file, or nothing.
[[nodiscard]] std::string refusedDriverOf(const LentFiles& files);

} // namespace Tidewatch::Raster
