// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Sheaf {

/// A block of bytes that a file carries for programs that know it, such as a variable length record of a LAS file.
struct FileRecord {
    /// Who defines it, and its number there.
    std::string userId;
    std::uint16_t recordId = 0;
    std::string description = {};
    std::vector<std::uint8_t> bytes = {};

    friend bool operator==(const FileRecord&, const FileRecord&) = default;
};

} // namespace Sheaf
