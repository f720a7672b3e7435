// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace ExportLib {

/// Makes a folder with all the folders above it that are missing; one that is there already is fine. Tells
/// whether the folder is there afterwards. Throws std::filesystem::filesystem_error when making it fails.
[[nodiscard]] bool createDirectory(const std::filesystem::path& directory);

} // namespace ExportLib
