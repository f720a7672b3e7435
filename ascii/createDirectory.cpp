// SPDX-License-Identifier: Apache-2.0
#include "ascii/createDirectory.hpp"

#include <system_error>

namespace ExportLib {

bool createDirectory(const std::filesystem::path& directory) {
    std::filesystem::create_directories(directory);
    // Judged by the error's value: what the system says about value 0 differs from platform to platform. The
    // folder itself is asked because not every standard library takes a plain file in its place for an error.
    std::error_code error;
    return std::filesystem::is_directory(directory, error) && error.value() == 0;
}

} // namespace ExportLib
