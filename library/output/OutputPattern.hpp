// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

#include <filesystem>
#include <string>
#include <vector>

namespace Tidewatch {

/// The OUTPUT of an export command: a path in which {grid}, {time} and {tile} are replaced by the name of a grid,
/// by a time in its shortest decimal form and by the name of a square.
class TIDEWATCH_API OutputPattern {
public:
    /// An empty pattern.
    OutputPattern() = default;

    /// Throws UsageError for an empty text, for anything else in braces and for a "{" that is not closed. A "}" by itself
    /// is literal.
    OutputPattern(std::string text);
    OutputPattern(const char* text) : OutputPattern(std::string(text)) {}

    [[nodiscard]] const std::string& text() const noexcept { return text_; }

    /// Whether each grid gets its own output.
    [[nodiscard]] bool isPerGrid() const noexcept { return perGrid_; }

    /// Whether each time gets its own output.
    [[nodiscard]] bool isPerTime() const noexcept { return perTime_; }

    /// Whether each square gets its own output.
    [[nodiscard]] bool isPerTile() const noexcept { return perTile_; }

    /// The folder that is part of every output, whatever the grid and the time: that of the text before the first
    /// brace, or the whole text, if it `isFolder`. "." if there is none.
    [[nodiscard]] std::filesystem::path fixedFolder(bool isFolder) const;

    /// The path for a grid, a time and a square. Throws Anchor::FormatError for a grid name in the pattern that is not
    /// valid as a path component: the name comes from an input file and must not refer to another folder.
    [[nodiscard]] std::string fill(const std::string& grid, double time, const std::string& tile = {}) const;

private:
    enum class Kind { Text, Grid, Time, Tile };
    struct Piece {
        Kind kind;
        std::string text;
    };

    std::string text_;
    std::vector<Piece> pieces_;
    bool perGrid_ = false;
    bool perTime_ = false;
    bool perTile_ = false;
};

} // namespace Tidewatch
