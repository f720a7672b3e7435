// SPDX-License-Identifier: Apache-2.0
//
// Writes the seeds of LasReaderFuzz into the folder given: small valid files of every kind.
#include "support/TemporaryFolder.hpp"
#include "support/smallLasFiles.hpp"

#include <cstdio>
#include <exception>
#include <filesystem>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: seeds-LasReader FOLDER\n", stderr);
        return 2;
    }
    try {
        const std::filesystem::path folder = argv[1];
        std::filesystem::create_directories(folder);
        for (const auto& [name, bytes] : Support::smallLasFiles())
            Support::writeBytes(folder / name, bytes);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "seeds-LasReader: %s\n", error.what());
        return 1;
    }
    return 0;
}
