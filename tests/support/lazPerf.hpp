// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/TemporaryFolder.hpp"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace Support {

/// Why laz-perf, the second decoder of LAZ files, cannot run here; empty where it can.
[[nodiscard]] inline std::string lazPerfMissing() {
    if (std::system("node --version > /dev/null 2>&1") != 0)
        return "no laz-perf: node is not installed";
    std::error_code ignored;
    if (!std::filesystem::is_directory(TIDEWATCH_JS_DIR "/node_modules/laz-perf", ignored))
        return "no laz-perf: scripts/setup.sh installs it";
    return {};
}

/// The raw records of a LAS or LAZ file as laz-perf decodes them, one after the other. It shares no code with
/// LASzip. Throws std::runtime_error with its message where it cannot.
[[nodiscard]] inline std::string decodeWithLazPerf(const std::string& path) {
    const TemporaryFolder folder;
    const std::string output = folder / "records.bin";
    const std::string command = "node '" TIDEWATCH_JS_DIR "/decode.mjs' '" + path + "' '" + output + "' > '" +
                                (folder / "log") + "' 2>&1";
    if (std::system(command.c_str()) != 0)
        throw std::runtime_error(readBytes(folder / "log"));
    return readBytes(output);
}

} // namespace Support
