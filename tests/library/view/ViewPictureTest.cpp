// SPDX-License-Identifier: Apache-2.0
#include "library/view/viewPicture.hpp"

#include "anchor/Error.hpp"
#include "library/sample/SampleSurvey.hpp"
#include "library/view/Canvas.hpp"
#include "library/view/PointClasses.hpp"
#include "library/view/Relief.hpp"
#include "sheaf/UniformCartesianArray.hpp"
#include "support/BundleBuilder.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <png.h>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using ::Support::GridBuilder;
using ::Support::Points;
using ::testing::StartsWith;

ViewImage blank(std::uint32_t width, std::uint32_t height) {
    return {width, height, std::vector<std::uint8_t>(std::size_t{3} * width * height)};
}

std::size_t litPixels(const ViewImage& image) {
    std::size_t count = 0;
    for (std::size_t at = 0; at < image.pixels.size(); at += 3)
        count += image.pixels[at] != 0 ? 1U : 0U;
    return count;
}

constexpr ViewColor white{255, 255, 255};

TEST(Canvas, EveryPrintableCharacterLooksDifferent) {
    std::set<std::vector<std::uint8_t>> looks;
    for (char character = ' '; character <= '~'; ++character) {
        ViewImage image = blank(6, 10);
        Canvas(image).text(0, 0, std::string(1, character), 1, white);
        looks.insert(image.pixels);
    }
    EXPECT_EQ(looks.size(), 95U);
}

TEST(Canvas, TextIsAsWideAsItSaysAndCharactersBeyondAsciiAreBoxes) {
    EXPECT_EQ(Canvas::textWidth("abc", 2), 36);
    EXPECT_EQ(Canvas::textWidth("K\xC3\xBCste", 1), 30);
    ViewImage image = blank(20, 12);
    Canvas(image).text(0, 0, "\xC3\xBC", 1, white);
    EXPECT_EQ(litPixels(image), 20U);
}

TEST(Canvas, WhatLiesOutsideIsLeftOut) {
    ViewImage image = blank(8, 8);
    Canvas canvas(image);
    canvas.text(-3, -3, "WWWWW", 3, white);
    canvas.arrow(0, 7, 40, 40, white);
    canvas.fill(-5, 6, 100, 100, white);
    EXPECT_GT(litPixels(image), 0U);
}

TEST(Relief, TheHighestPointOfAPixelCounts) {
    Relief relief({0, 0, 1, 4, 3});
    relief.take(1.5, 2.5, 10, 1);
    relief.take(1.4, 2.1, 12, 2);
    relief.take(1.6, 2.9, 11, 3);
    EXPECT_EQ(relief.value(2 * 4 + 1), 2U);
    EXPECT_EQ(relief.height(2 * 4 + 1), 12);
    EXPECT_FALSE(relief.isThere(0));
}

TEST(Relief, PointsOutsideAndOutlandishOnesAreLeftOut) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    Relief relief({0, 0, 1, 2, 2});
    for (const double odd : {-0.1, 2.0, 1e300, -infinity, infinity, std::nan("")}) {
        relief.take(odd, 0.5, 1, 1);
        relief.take(0.5, odd, 1, 1);
    }
    for (const double odd : {1e300, -1e300, infinity, -infinity, std::nan("")})
        relief.take(0.5, 0.5, odd, 1);
    for (std::size_t pixel = 0; pixel < relief.size(); ++pixel)
        EXPECT_FALSE(relief.isThere(pixel));
}

TEST(Relief, GapsCloseAsFarAsTheyMay) {
    Relief relief({0, 0, 1, 9, 1});
    relief.take(4.5, 0.5, 3, 7);
    relief.closeGaps(2);
    for (std::size_t pixel = 0; pixel < 9; ++pixel)
        EXPECT_EQ(relief.isThere(pixel), pixel >= 2 && pixel <= 6) << pixel;
    EXPECT_EQ(relief.value(6), 7U);
}

TEST(Relief, SlopesTowardsTheNorthWestAreLighter) {
    const auto lightOf = [](double perColumn, double perRow) {
        Relief relief({0, 0, 1, 3, 3});
        for (int row = 0; row < 3; ++row) {
            for (int column = 0; column < 3; ++column)
                relief.take(column + 0.5, row + 0.5, column * perColumn + row * perRow, 0);
        }
        return relief.light(1, 1, 1);
    };
    // A slope that rises to the east looks west.
    EXPECT_GT(lightOf(1, 0), lightOf(0, 0));
    EXPECT_GT(lightOf(0, 0), lightOf(-1, 0));
    EXPECT_GT(lightOf(0, -1), lightOf(0, 1));
    EXPECT_NEAR(lightOf(0, 0), std::sqrt(0.5), 1e-15);
}

TEST(PointClasses, NamesAndColoursAreThereForEveryCode) {
    EXPECT_EQ(pointClassName(0), "Created, Never Classified");
    EXPECT_EQ(pointClassName(22), "Temporal Exclusion");
    EXPECT_EQ(pointClassName(23), "Reserved");
    EXPECT_EQ(pointClassName(63), "Reserved");
    EXPECT_EQ(pointClassName(64), "User Definable");
    EXPECT_EQ(pointClassName(255), "User Definable");
    for (int code = 1; code < 256; ++code)
        EXPECT_NE(pointClassColor(static_cast<std::uint8_t>(code)),
                  pointClassColor(static_cast<std::uint8_t>(code - 1)));
}

TEST(ColorRamps, BeginAndEndInTheirColours) {
    for (const ColorRamp& ramp : colorRamps()) {
        EXPECT_EQ(ramp.at(0), ramp.colors.front());
        EXPECT_EQ(ramp.at(-3), ramp.colors.front());
        EXPECT_EQ(ramp.at(std::nan("")), ramp.colors.front());
        EXPECT_EQ(ramp.at(1), ramp.colors.back());
        EXPECT_EQ(ramp.at(1e300), ramp.colors.back());
    }
    EXPECT_EQ(colorText({1, 160, 255}), "#01a0ff");
}

class ViewPictureTest : public ::testing::Test {
protected:
    [[nodiscard]] ViewPicture make(const ViewPictureOptions& options) {
        return makeViewPicture(Inputs(bundle_), options, progress_);
    }
    /// Pixels whose colour is that of a class but for the light.
    static std::size_t pixelsLike(const ViewImage& image, const ViewColor& color) {
        std::size_t count = 0;
        for (std::size_t at = 0; at < image.pixels.size(); at += 3) {
            const double light = image.pixels[at + 2] / static_cast<double>(color[2]);
            const auto isLike = [&](std::size_t part) {
                return std::abs(image.pixels[at + part] - color[part] * light) < 4;
            };
            count += light > 0.4 && light < 1.25 && isLike(0) && isLike(1) ? 1U : 0U;
        }
        return count;
    }

    Anchor::StrongPtr<Sheaf::Bundle> bundle_ = Anchor::makeStrong<Sheaf::Bundle>();
    Progress progress_;
};

TEST_F(ViewPictureTest, TheTideRisesInPicturesOfTheSampleSurvey) {
    SampleOptions sample;
    sample.points = 40'000;
    bundle_ = makeSampleSurvey(sample);
    ViewPictureOptions options;
    options.size = {400, 300};
    std::vector<std::size_t> water;
    for (const double time : {0.0, 3.0, 6.0}) {
        options.filters.times = {{time, time}};
        const ViewPicture picture = make(options);
        EXPECT_EQ(picture.points, 40'000U);
        EXPECT_EQ(picture.image.width, 400U);
        EXPECT_EQ(picture.image.pixels.size(), 3U * 400 * 300);
        water.push_back(pixelsLike(picture.image, pointClassColor(9)));
    }
    EXPECT_GT(water[0], 2'000U);
    EXPECT_GT(water[1], water[0]);
    EXPECT_GT(water[2], water[1]);
}

TEST_F(ViewPictureTest, EveryColouringLooksDifferent) {
    SampleOptions sample;
    sample.points = 10'000;
    bundle_ = makeSampleSurvey(sample);
    using Colors = ViewPictureOptions::Colors;
    std::set<std::vector<std::uint8_t>> looks;
    for (const Colors colors :
         {Colors::Height, Colors::Class, Colors::Intensity, Colors::Return, Colors::RGB}) {
        ViewPictureOptions options;
        options.size = {300, 240};
        options.colors = colors;
        looks.insert(make(options).image.pixels);
    }
    EXPECT_EQ(looks.size(), 5U);
    ViewPictureOptions elevation;
    elevation.filters.grids = {"elevation"};
    const ViewPicture surface = make(elevation);
    EXPECT_EQ(surface.points, 240'400U);
    elevation.colors = Colors::Intensity;
    EXPECT_THROW((void)make(elevation), Anchor::ModelError);
}

TEST_F(ViewPictureTest, ThreeBandsOfBytesArePictures) {
    const Sheaf::MultiIndex<3> extents{{40, 30, 1}};
    const auto band = [&](unsigned char value) {
        return Anchor::makeStrong<Sheaf::HeldCreator>(
            Sheaf::makeArray(Sheaf::Extents(extents), std::vector<unsigned char>(1200, value)));
    };
    GridBuilder(*bundle_, 0, "photo")
        .field("Positions", "",
               Anchor::makeStrong<Sheaf::HeldCreator>(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
                   Geom::PhysicalSpace::point{0, 0, 0}, Geom::PhysicalSpace::vector{1, 1, 1}, extents)))
        .field("Band1", "", band(200))
        .field("Band2", "", band(100))
        .field("Band3", "", band(50));
    ViewPictureOptions options;
    options.size = {300, 240};
    EXPECT_GT(pixelsLike(make(options).image, {200, 100, 50}), 10'000U);
}

TEST_F(ViewPictureTest, OddCloudsAreDrawnOrRefused) {
    const ViewPictureOptions options;
    EXPECT_THROW((void)make(options), Anchor::ModelError);
    constexpr double infinity = std::numeric_limits<double>::infinity();
    GridBuilder(*bundle_, 0, "one").field("Positions", "", Points{{5, 5, 5}});
    EXPECT_EQ(make(options).points, 1U);
    GridBuilder(*bundle_, 1, "line").field("Positions", "", Points{{0, 0, 0}, {0, 1e9, 0}});
    GridBuilder(*bundle_, 2, "odd")
        .field("Positions", "", Points{{0, 0, infinity}, {1, 1, std::nan("")}, {2, 0, 3}});
    GridBuilder(*bundle_, 3, "vast").field("Positions", "", Points{{-1.7e308, 0, 0}, {1.7e308, 0, 0}});
    for (const double time : {1.0, 2.0}) {
        ViewPictureOptions one;
        one.filters.times = {{time, time}};
        EXPECT_NO_THROW((void)make(one)) << time;
    }
    ViewPictureOptions vast;
    vast.filters.times = {{3, 3}};
    EXPECT_THROW((void)make(vast), Anchor::ModelError);
}

TEST(PngBytes, APngFileHoldsThePixels) {
    ViewImage image = blank(7, 3);
    for (std::size_t at = 0; at < image.pixels.size(); ++at)
        image.pixels[at] = static_cast<std::uint8_t>(at * 37);
    const std::string bytes = pngBytes(image);
    EXPECT_THAT(bytes, StartsWith("\x89PNG"));
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    ASSERT_NE(png_image_begin_read_from_memory(&png, bytes.data(), bytes.size()), 0);
    png.format = PNG_FORMAT_RGB;
    ASSERT_EQ(PNG_IMAGE_SIZE(png), image.pixels.size());
    std::vector<std::uint8_t> back(image.pixels.size());
    ASSERT_NE(png_image_finish_read(&png, nullptr, back.data(), 0, nullptr), 0);
    EXPECT_EQ(back, image.pixels);
}

} // namespace
} // namespace Tidewatch
