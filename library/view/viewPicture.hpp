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

/// What a picture is to show.
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
    /// Automatic: by class where there are several, else by height.
    Colors colors = Colors::Automatic;
    /// The heading.
    std::string title;
};

/// A picture, and how many points it was made of.
struct TIDEWATCH_API ViewPicture {
    ViewImage image;
    std::uint64_t points = 0;
};

/// Draws the first of the chosen slices from above, north up: of each pixel the highest point, with the light of a low sun
/// in the north-west; with heading, legend, scale bar and north arrow. The same inputs give the same pixels everywhere.
///
/// Makes every array of positions twice. Throws Anchor::ModelError where nothing was chosen that could be shown or the
/// chosen attribute is not there, and what creators and the progress object throw.
[[nodiscard]] TIDEWATCH_API ViewPicture makeViewPicture(const Inputs& inputs,
                                                        const ViewPictureOptions& options,
                                                        Progress& progress);

/// An image as a PNG file. Throws Anchor::LimitError where there is no memory for it.
[[nodiscard]] TIDEWATCH_API std::string pngBytes(const ViewImage& image);

} // namespace Tidewatch
