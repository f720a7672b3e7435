// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>

namespace Tidewatch {

/// Squares that points are cut into by their place: half-open (what lies on the upper or right edge belongs to the
/// next one), in units of the coordinates.
class TIDEWATCH_API TileLayout {
public:
    /// Throws UsageError if the size is not a finite number above 0, or the origin not finite.
    TileLayout(double size, const std::array<double, 2>& origin);

    /// A square by its column and row, counted from the origin.
    struct Tile {
        std::int64_t column;
        std::int64_t row;
        friend auto operator<=>(const Tile&, const Tile&) = default;
    };

    /// The square that a place is in. Only for coordinates for which isPlaced() is true.
    [[nodiscard]] Tile at(double x, double y) const noexcept {
        return {cell(x, origin_[0]), cell(y, origin_[1])};
    }

    /// Whether coordinates are finite and not too many squares away from the origin to be counted exactly.
    [[nodiscard]] bool isPlaced(double x, double y) const noexcept {
        return isCountable(x, origin_[0]) && isCountable(y, origin_[1]);
    }

    /// The lower left corner of a square.
    [[nodiscard]] std::array<double, 2> corner(const Tile& tile) const noexcept {
        return {edge(tile.column, origin_[0]), edge(tile.row, origin_[1])};
    }

    /// The name of a square: its corner, "432000_5921000".
    [[nodiscard]] std::string name(const Tile& tile) const;

    [[nodiscard]] double size() const noexcept { return size_; }

private:
    [[nodiscard]] double edge(std::int64_t number, double origin) const noexcept {
        return origin + static_cast<double>(number) * size_;
    }
    [[nodiscard]] std::int64_t cell(double value, double origin) const noexcept;
    [[nodiscard]] bool isCountable(double value, double origin) const noexcept;

    double size_;
    std::array<double, 2> origin_;
};

/// How points are cut into squares.
struct TileOptions {
    TileLayout layout;
    /// Each square becomes a grid of its own; otherwise a fragment of the grid that its points are in.
    bool areGrids = false;
    /// Where the points lie meanwhile: a folder, or the path of one that does not exist yet in one that does. The file
    /// there has no name, so it goes with the process whatever happens.
    std::filesystem::path scratch = ".";
};

} // namespace Tidewatch
