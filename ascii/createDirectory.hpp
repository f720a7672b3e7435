// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace ExportLib {

/// Creates a folder and its missing parent folders; an existing folder is fine. Returns whether the folder
/// exists afterwards. Throws std::filesystem::filesystem_error if creating it fails.
[[nodiscard]] bool createDirectory(const std::filesystem::path& directory);

} // namespace ExportLib
