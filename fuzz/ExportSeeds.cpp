// SPDX-License-Identifier: Apache-2.0
//
// Writes seeds of ExportFuzz into the folder given: bytes from a generator of random numbers.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: seeds-Export FOLDER\n", stderr);
        return 2;
    }
    const std::filesystem::path folder = argv[1];
    std::filesystem::create_directories(folder);
    std::mt19937_64 random(1);
    for (int seed = 0; seed < 64; ++seed) {
        std::string bytes(1024, '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(random());
        std::ofstream(folder / std::to_string(seed), std::ios::binary) << bytes;
    }
    return 0;
}
