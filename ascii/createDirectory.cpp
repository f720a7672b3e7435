// SPDX-License-Identifier: Apache-2.0
#include "ascii/createDirectory.hpp"

#include <system_error>

namespace ExportLib {

bool createDirectory(const std::filesystem::path& directory) {
    std::filesystem::create_directories(directory);
    // Judged by the error's value: the system's text for value 0 differs between platforms. The folder itself
    // is checked because not every standard library reports an error if a plain file is in its place.
    std::error_code error;
    return std::filesystem::is_directory(directory, error) && error.value() == 0;
}

} // namespace ExportLib
