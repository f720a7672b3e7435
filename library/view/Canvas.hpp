// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/view/ViewColor.hpp"
#include "library/view/viewPicture.hpp"

#include <cstdint>
#include <string_view>

namespace Tidewatch {

/// Draws on an image: rectangles, triangles and texts, in whole pixels, so that the result is the same
/// everywhere. Drawing is clipped to the image.
class Canvas {
public:
    explicit Canvas(ViewImage& image) : image_(image) {}

    void set(std::int64_t x, std::int64_t y, const ViewColor& color);
    void fill(std::int64_t x, std::int64_t y, std::int64_t width, std::int64_t height,
              const ViewColor& color);
    /// A triangle with a horizontal base: its tip at (x, y), the base `height` rows below (above, if
    /// negative), extending `half` pixels to either side.
    void arrow(std::int64_t x, std::int64_t y, std::int64_t half, std::int64_t height,
               const ViewColor& color);

    /// Draws a text with its upper left corner at (x, y). A pixel of the font is a square of `scale` pixels.
    /// Characters other than printable ASCII are shown as boxes.
    void text(std::int64_t x, std::int64_t y, std::string_view text, std::int64_t scale,
              const ViewColor& color);

    [[nodiscard]] static std::int64_t textWidth(std::string_view text, std::int64_t scale);
    [[nodiscard]] static std::int64_t textHeight(std::int64_t scale);

private:
    ViewImage& image_;
};

} // namespace Tidewatch
