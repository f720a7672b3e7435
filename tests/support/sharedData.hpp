// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

namespace Support {

/// The path of a public sample file: in the folder "data" of the folder that the environment variable
/// TIDEWATCH_SHARED names, or else of the one that the build names. Empty where it is not there; tests are
/// then skipped.
[[nodiscard]] inline std::string sharedData(const std::string& name) {
    const char* const folder = std::getenv("TIDEWATCH_SHARED");
    const std::filesystem::path path =
        std::filesystem::path(folder != nullptr ? folder : TIDEWATCH_SHARED_DIR) / "data" / name;
    std::error_code ignored;
    return std::filesystem::is_regular_file(path, ignored) ? path.string() : std::string();
}

} // namespace Support

/// The path of a public sample file as the variable VARIABLE; skips the test where the file is absent.
#define TIDEWATCH_NEED_SHARED(VARIABLE, NAME)                                                                \
    const std::string VARIABLE = Support::sharedData(NAME);                                                  \
    if (VARIABLE.empty())                                                                                    \
    GTEST_SKIP() << "no sample data: " << (NAME) << " is absent"
