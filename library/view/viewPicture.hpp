// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/Progress.hpp"
#include "library/input/Filters.hpp"
#include "library/input/Inputs.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace Tidewatch {

/// Pixels of red, green and blue, row by row from the top.
struct TIDEWATCH_API ViewImage {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<std::uint8_t> pixels;
};

/// What a picture shows.
struct TIDEWATCH_API ViewPictureOptions {
    struct Size {
        std::uint32_t width = 1200;
        std::uint32_t height = 900;
    };
    static constexpr std::uint32_t leastEdge = 200;
    static constexpr std::uint32_t mostEdge = 20'000;

    enum class Colors { Automatic, Height, Class, Intensity, Return, RGB };

    Filters filters;
    Size size;
    /// Automatic: by class if there are several, else by height.
    Colors colors = Colors::Automatic;
    /// The heading.
    std::string title;
};

/// A picture, and the number of its points.
struct TIDEWATCH_API ViewPicture {
    ViewImage image;
    std::uint64_t points = 0;
};

/// Draws the first of the chosen slices from above, north up: the highest point of each pixel, illuminated
/// from the north-west; with heading, legend, scale bar and north arrow. The same inputs give the same pixels
/// on all machines.
///
/// Creates every array of positions twice. Throws Anchor::ModelError if there is nothing to show or the
/// chosen attribute is missing, and what creators and the progress object throw.
[[nodiscard]] TIDEWATCH_API ViewPicture makeViewPicture(const Inputs& inputs,
                                                        const ViewPictureOptions& options,
                                                        Progress& progress);

/// Encodes an image as PNG. Throws Anchor::LimitError if memory runs out.
[[nodiscard]] TIDEWATCH_API std::string pngBytes(const ViewImage& image);

} // namespace Tidewatch
