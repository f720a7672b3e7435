// SPDX-License-Identifier: Apache-2.0
#include "host/Program.hpp"
#include "library/input/freedArrays.hpp"

#include <cstddef>

int main(int argc, char** argv) {
    Tidewatch::giveFreedArraysBack();
    const std::size_t count = argc > 0 ? static_cast<std::size_t>(argc) - 1 : 0;
    return Tidewatch::runProgram({argv + 1, count});
}
