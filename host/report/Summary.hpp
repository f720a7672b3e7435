// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host/report/Losses.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Tidewatch {

/// What a command has put in place; goes to standard output.
struct Summary {
    struct File {
        std::string path;
        std::uint64_t items = 0;
        std::uint64_t bytes = 0;
        /// What the items are, in the plural: "points".
        std::string unit;
        /// Where the file holds one grid.
        std::optional<std::string> grid;
        std::optional<double> time;
        /// What the file held before, where it was added to.
        std::uint64_t bytesBefore = 0;
    };

    std::string command;
    std::vector<File> files;
    std::vector<Loss> losses;
    /// What is no loss and no fault and yet worth knowing.
    std::vector<std::string> notes;
    std::vector<std::string> errors;

    /// A line a file: "out/cloud.pcd: 1234 points, 56789 bytes", with ", added to 11 bytes" where the file
    /// held something before.
    [[nodiscard]] std::string text() const;

    /// The summary as a JSON document, ended by a newline; text that is not UTF-8 is mended.
    [[nodiscard]] std::string json() const;
};

} // namespace Tidewatch
