// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace Tidewatch {

/// The header fields of a LAS or LAZ file that the program compares with their expected values (LAS 1.4 R15,
/// "Public Header Block").
struct LasStatement {
    unsigned versionMinor = 0;
    unsigned pointFormat = 0;
    bool compressed = false;
    std::uint64_t points = 0;
    /// Points by return, starting with the first return: 15 counts in LAS 1.4, 5 before.
    std::vector<std::uint64_t> pointsByReturn;
    std::array<double, 3> step{};
    std::array<double, 3> offset{};
    std::array<double, 3> lower{};
    std::array<double, 3> upper{};

    /// Throws Anchor::FileError if the file cannot be read, Anchor::FormatError if it is too short for a
    /// header or not LAS 1.2 to 1.4.
    [[nodiscard]] static LasStatement read(const std::string& path);
};

} // namespace Tidewatch
