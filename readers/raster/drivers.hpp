// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/raster/LentFiles.hpp"

#include <string>

namespace Tidewatch::Raster {

/// GDAL's names of the supported formats, terminated by a null pointer.
///
/// An allowlist, since GDAL adds formats with every release: formats whose files contain their pixels and
/// whose companion files, if any, have the file's name with another extension. Formats that refer to other
/// files or addresses (virtual rasters, headers that name their data, network services, containers of other
/// files) would let an untrusted file read the user's files.
[[nodiscard]] const char* const* readableDrivers() noexcept;

/// Registers GDAL's drivers, once per process.
void registerDrivers();

/// The readable driver that recognises the first of the files by its content, or nothing.
[[nodiscard]] std::string readableDriverOf(const LentFiles& files);

/// The driver of a common format that refers to other files, if it recognises the file, or nothing.
[[nodiscard]] std::string refusedDriverOf(const LentFiles& files);

} // namespace Tidewatch::Raster
