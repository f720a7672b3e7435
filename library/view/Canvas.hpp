// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/view/ViewColor.hpp"
#include "library/view/viewPicture.hpp"

#include <cstdint>
#include <string_view>

namespace Tidewatch {

/// Draws on an image: rectangles, triangles and texts, in whole pixels, so that the result is the same everywhere.
/// What lies outside the image is left out.
class Canvas {
public:
    explicit Canvas(ViewImage& image) : image_(image) {}

    void set(std::int64_t x, std::int64_t y, const ViewColor& color);
    void fill(std::int64_t x, std::int64_t y, std::int64_t width, std::int64_t height,
              const ViewColor& color);
    /// A triangle of which two corners lie on one row: its point at (x, y), the others `height` rows below (above, where it
    /// is negative), `half` pixels to either side.
    void arrow(std::int64_t x, std::int64_t y, std::int64_t half, std::int64_t height,
               const ViewColor& color);

    /// Writes a text whose upper left corner is at (x, y). A pixel of the font is a square of `scale`. What is not printable
    /// ASCII is shown as a box, one for each character of UTF-8.
    void text(std::int64_t x, std::int64_t y, std::string_view text, std::int64_t scale,
              const ViewColor& color);

    [[nodiscard]] static std::int64_t textWidth(std::string_view text, std::int64_t scale);
    [[nodiscard]] static std::int64_t textHeight(std::int64_t scale);

private:
    ViewImage& image_;
};

} // namespace Tidewatch
