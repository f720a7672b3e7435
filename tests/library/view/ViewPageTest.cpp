// SPDX-License-Identifier: Apache-2.0
#include "library/view/viewPage.hpp"

#include "anchor/Cache.hpp"
#include "anchor/Error.hpp"
#include "library/sample/SampleSurvey.hpp"
#include "library/view/UnpackedColumn.hpp"
#include "sheaf/CachedCreator.hpp"
#include "sheaf/MemArray.hpp"
#include "sheaf/UniformCartesianArray.hpp"
#include "support/BundleBuilder.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <random>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace Tidewatch {
namespace {

using Geom::PhysicalSpace;
using ::Support::GridBuilder;
using ::Support::Points;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Json = nlohmann::json;

/// A page taken apart again.
class ReadPage {
public:
    explicit ReadPage(const ViewPage& page) {
        for (const std::string& piece : page.text)
            text_ += piece;
        manifest = Json::parse(element("manifest"));
    }

    [[nodiscard]] const std::string& text() const { return text_; }

    [[nodiscard]] std::string element(const std::string& id) const {
        const std::string mark = " id=\"" + id + "\">";
        const std::size_t start = text_.find(mark);
        if (start == std::string::npos)
            throw std::runtime_error("has no element " + id);
        const std::size_t begin = start + mark.size();
        return text_.substr(begin, text_.find("</script>", begin) - begin);
    }

    [[nodiscard]] std::vector<double> column(const Json& piece, const std::string& name) const {
        const std::string bytes = fromBase64(element(piece["data"]));
        std::size_t start = 0;
        for (const Json& entry : piece["columns"]) {
            PackedColumn column;
            column.kind =
                entry["kind"] == "integer" ? PackedColumn::Kind::Integer : PackedColumn::Kind::Float;
            column.width = entry["width"];
            column.bytes = bytes.substr(start, entry["bytes"].get<std::size_t>());
            start += column.bytes.size();
            if (entry["name"] != name)
                continue;
            if (column.kind == PackedColumn::Kind::Integer) {
                column.min = std::stoll(entry["min"].get<std::string>());
                column.max = std::stoll(entry["max"].get<std::string>());
                column.decimals = entry["decimals"];
                column.hasGaps = entry["gaps"];
            }
            return Tidewatch::Support::unpacked(column, piece["count"]);
        }
        throw std::runtime_error("has no column " + name);
    }

    Json manifest;

private:
    static std::string fromBase64(const std::string& text) {
        const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        std::string bytes;
        for (std::size_t at = 0; at + 4 <= text.size(); at += 4) {
            std::size_t word = 0;
            for (std::size_t digit = 0; digit < 4; ++digit)
                word = word << 6 | (text[at + digit] == '=' ? 0 : alphabet.find(text[at + digit]));
            for (const unsigned shift : {16U, 8U, 0U})
                bytes += static_cast<char>(word >> shift & 0xFF);
        }
        while (!text.empty() && bytes.size() > text.size() / 4 * 3 - static_cast<std::size_t>(std::count(
                                                                         text.end() - 2, text.end(), '=')))
            bytes.pop_back();
        return bytes;
    }

    std::string text_;
};

class ViewPageTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!canMakeViewPages())
            GTEST_SKIP() << "no npm packages of view/: scripts/setup.sh installs them";
    }

    [[nodiscard]] ReadPage make(const ViewPageOptions& options = {}) {
        made_ = makeViewPage(Inputs(bundle_), options, progress_);
        return ReadPage(made_);
    }
    [[nodiscard]] static ViewPageOptions withPoints(std::uint64_t points) {
        ViewPageOptions options;
        options.points = points;
        return options;
    }

    Anchor::StrongPtr<Sheaf::Bundle> bundle_ = Anchor::makeStrong<Sheaf::Bundle>();
    Progress progress_;
    ViewPage made_;
};

Points randomPlaces(std::size_t count, unsigned seed) {
    std::mt19937 random(seed);
    Points points;
    for (std::size_t i = 0; i < count; ++i)
        points.push_back({static_cast<double>(431'000'000 + random() % 500'000) / 1000,
                          static_cast<double>(5'921'000'000 + random() % 400'000) / 1000,
                          static_cast<double>(random() % 9'000) / 1000});
    return points;
}

TEST_F(ViewPageTest, AllPointsAndTheirAttributesComeBackExactly) {
    const Points points = randomPlaces(500, 1);
    std::vector<unsigned short> intensity;
    std::vector<double> time;
    std::vector<Sheaf::Element::Color> colors;
    for (unsigned i = 0; i < 500; ++i) {
        intensity.push_back(static_cast<unsigned short>(i * 131));
        time.push_back(1e5 + 1.0 / (1 + i));
        colors.push_back({{{static_cast<unsigned char>(i), 7, 200}}});
    }
    GridBuilder(*bundle_, 2.5, "cloud")
        .field("Positions", "a", Points(points.begin(), points.begin() + 300))
        .field("Positions", "b", Points(points.begin() + 300, points.end()))
        .field("Intensity", "a", std::vector<unsigned short>(intensity.begin(), intensity.begin() + 300))
        .field("Intensity", "b", std::vector<unsigned short>(intensity.begin() + 300, intensity.end()))
        .field("GPSTime", "a", std::vector<double>(time.begin(), time.begin() + 300))
        .field("RGB", "b", std::vector<Sheaf::Element::Color>(colors.begin() + 300, colors.end()));
    const ReadPage page = make();
    const Json& slice = page.manifest["slices"][0];
    EXPECT_EQ(slice["time"], 2.5);
    const Json& layer = slice["layers"][0];
    EXPECT_EQ(layer["grid"], "cloud");
    EXPECT_EQ(layer["of"], 500);
    EXPECT_EQ(layer["isDefault"], true);
    const Json& piece = layer["pieces"][0];
    EXPECT_EQ(piece["count"], 500);
    EXPECT_EQ(made_.points, 500U);
    EXPECT_THAT(made_.notes, IsEmpty());

    const auto x = page.column(piece, "x");
    const auto y = page.column(piece, "y");
    const auto z = page.column(piece, "z");
    std::map<std::vector<double>, std::size_t> known;
    for (std::size_t i = 0; i < points.size(); ++i)
        known[{points[i].x, points[i].y, points[i].z}] = i;
    const auto intensities = page.column(piece, "Intensity");
    const auto times = page.column(piece, "GPSTime");
    const auto reds = page.column(piece, "RGB red");
    const auto blues = page.column(piece, "RGB blue");
    std::set<std::size_t> seen;
    for (std::size_t i = 0; i < 500; ++i) {
        const auto found = known.find({x[i], y[i], z[i]});
        ASSERT_NE(found, known.end()) << i;
        const std::size_t point = found->second;
        seen.insert(point);
        EXPECT_EQ(intensities[i], intensity[point]);
        if (point < 300) {
            EXPECT_EQ(times[i], time[point]);
            EXPECT_TRUE(std::isnan(reds[i]));
        } else {
            EXPECT_TRUE(std::isnan(times[i]));
            EXPECT_EQ(reds[i], colors[point][0]);
            EXPECT_EQ(blues[i], 200);
        }
    }
    EXPECT_EQ(seen.size(), 500U);
    EXPECT_EQ(piece["columns"][0]["decimals"], 3);
    EXPECT_EQ(piece["columns"][0]["role"], "x");
}

TEST_F(ViewPageTest, NoClassAndNoSliceVanishes) {
    for (int time = 0; time < 4; ++time) {
        const std::size_t count = time == 3 ? 40 : 40'000;
        std::vector<unsigned char> classes(count, 2);
        classes[5] = 18;
        classes[count - 1] = 255;
        GridBuilder(*bundle_, time, "cloud")
            .field("Positions", "", randomPlaces(count, 10 + static_cast<unsigned>(time)))
            .field("Classification", "", std::move(classes));
    }
    const ReadPage page = make(withPoints(2'000));
    EXPECT_LE(made_.points, 2'000U);
    EXPECT_GE(made_.points, 1'900U);
    EXPECT_EQ(made_.of, 120'040U);
    EXPECT_THAT(made_.notes, ElementsAre(HasSubstr(" of 120 040 points")));
    ASSERT_EQ(page.manifest["slices"].size(), 4U);
    for (const Json& slice : page.manifest["slices"]) {
        const auto classes = page.column(slice["layers"][0]["pieces"][0], "Classification");
        EXPECT_EQ(std::count(classes.begin(), classes.end(), 18), 1) << slice["time"];
        EXPECT_EQ(std::count(classes.begin(), classes.end(), 255), 1) << slice["time"];
    }
    EXPECT_EQ(page.manifest["slices"][3]["layers"][0]["pieces"][0]["count"], 40);
    std::vector<int> codes;
    for (const Json& entry : page.manifest["classes"])
        codes.push_back(entry["code"]);
    EXPECT_THAT(codes, ElementsAre(2, 18, 255));
    EXPECT_EQ(page.manifest["classes"][0]["name"], "Ground");
    EXPECT_EQ(page.manifest["classes"][1]["name"], "High Noise");
    EXPECT_EQ(page.manifest["classes"][2]["name"], "User Definable");
}

TEST_F(ViewPageTest, NamesAreNeverMarkup) {
    GridBuilder(*bundle_, 0, "<img onerror=alert(1)></script><script>alert(2)</script>")
        .field("Positions", "", Points{{0, 0, 0}})
        .field("<b>", "", std::vector<float>{1});
    GridBuilder(*bundle_, 0, "\xFFno text").field("Positions", "", Points{{0, 0, 0}});
    ViewPageOptions options;
    options.title = "<!-- <script>";
    const ReadPage page = make(options);
    EXPECT_THAT(page.element("manifest"), Not(HasSubstr("<")));
    EXPECT_THAT(page.text(), Not(HasSubstr("<img onerror")));
    EXPECT_EQ(page.manifest["title"], "<!-- <script>");
    EXPECT_EQ(page.manifest["slices"][0]["layers"][0]["grid"],
              "<img onerror=alert(1)></script><script>alert(2)</script>");
    EXPECT_EQ(page.manifest["slices"][0]["layers"][1]["grid"], "\xEF\xBF\xBDno text");
}

TEST_F(ViewPageTest, ALatticeBecomesASurfaceWithItsHoles) {
    using Sheaf::UniformCartesianArray;
    const Sheaf::MultiIndex<3> extents{{4, 3, 1}};
    std::vector<float> heights(12);
    std::vector<unsigned char> types(12, 1);
    for (std::size_t i = 0; i < 12; ++i)
        heights[i] = static_cast<float>(i) / 4;
    types[5] = 0;
    const auto held = [&](auto values) {
        return Anchor::makeStrong<Sheaf::HeldCreator>(
            Sheaf::makeArray(Sheaf::Extents(extents), std::move(values)));
    };
    GridBuilder(*bundle_, 0, "dem")
        .field("Positions", "",
               Anchor::makeStrong<Sheaf::HeldCreator>(Anchor::makeStrong<UniformCartesianArray>(
                   Geom::PhysicalSpace::point{100, 200, 0}, Geom::PhysicalSpace::vector{2, 5, 1}, extents)))
        .field("Height", "", held(heights))
        .field("CellType", "", held(types));
    const ReadPage page = make();
    const Json& piece = page.manifest["slices"][0]["layers"][0]["pieces"][0];
    EXPECT_EQ(piece["kind"], "surface");
    EXPECT_EQ(piece["extents"], Json({4, 3}));
    EXPECT_EQ(piece["origin"], Json({100.0, 200.0}));
    EXPECT_EQ(piece["spacing"], Json({2.0, 5.0}));
    EXPECT_EQ(piece["height"], "Height");
    const auto back = page.column(piece, "Height");
    EXPECT_EQ(back, std::vector<double>(heights.begin(), heights.end()));
    const auto holes = page.column(piece, "hole");
    EXPECT_EQ(std::count(holes.begin(), holes.end(), 1), 1);
    EXPECT_EQ(holes[5], 1);

    const ReadPage thin = make(withPoints(4));
    const Json& thinned = thin.manifest["slices"][0]["layers"][0]["pieces"][0];
    EXPECT_EQ(thinned["extents"], Json({2, 2}));
    EXPECT_EQ(thinned["spacing"], Json({4.0, 10.0}));
    EXPECT_THAT(thin.column(thinned, "Height"), ElementsAre(0, 0.5, 2, 2.5));
}

TEST_F(ViewPageTest, TheSampleSurveyKeepsLevelsSlicesAndTheBudget) {
    SampleOptions sample;
    sample.points = 20'000;
    bundle_ = makeSampleSurvey(sample);
    const ReadPage page = make(withPoints(100'000));
    EXPECT_LE(made_.points, 100'000U);
    ASSERT_EQ(page.manifest["slices"].size(), 3U);
    const Json& layers = page.manifest["slices"][1]["layers"];
    ASSERT_EQ(layers.size(), 3U);
    EXPECT_EQ(layers[0]["refinement"], Json({0, 0, 0}));
    EXPECT_EQ(layers[0]["isDefault"], false);
    EXPECT_EQ(layers[1]["refinement"], Json({1, 1, 1}));
    EXPECT_EQ(layers[1]["isDefault"], true);
    EXPECT_EQ(layers[2]["pieces"].size(), 2U);
}

TEST_F(ViewPageTest, FiltersChoose) {
    SampleOptions sample;
    sample.points = 2'000;
    bundle_ = makeSampleSurvey(sample);
    ViewPageOptions options;
    options.filters.times = {{3, 6}};
    options.filters.grids = {"coa*"};
    options.filters.fields = {"Intensity"};
    const ReadPage page = make(options);
    ASSERT_EQ(page.manifest["slices"].size(), 2U);
    const Json& columns = page.manifest["slices"][0]["layers"][0]["pieces"][0]["columns"];
    ASSERT_EQ(columns.size(), 4U);
    EXPECT_EQ(columns[3]["role"], "intensity");
    options.filters.grids = {"nothing"};
    EXPECT_THROW((void)make(options), Anchor::ModelError);
}

TEST_F(ViewPageTest, ThePageIsNeverLargerThanItMayBe) {
    // Noise in many attributes cannot be compressed.
    std::mt19937_64 random(3);
    constexpr std::size_t count = 400'000;
    GridBuilder grid(*bundle_, 0, "noise");
    grid.field("Positions", "", randomPlaces(count, 4));
    for (int number = 0; number < 8; ++number) {
        std::vector<double> values;
        for (std::size_t i = 0; i < count; ++i)
            values.push_back(static_cast<double>(random()) / 3e3);
        grid.field("Noise" + std::to_string(number), "", std::move(values));
    }
    const ReadPage page = make();
    EXPECT_LE(page.text().size(), ViewPageOptions::usualBytes);
    EXPECT_GE(page.text().size(), ViewPageOptions::usualBytes * 8 / 10);
    EXPECT_THAT(made_.notes, Contains(HasSubstr("limit the page to 25 MB")));
}

/// Positions that note the limit of the memory cache when they are made.
class Witness final : public Sheaf::CachedCreator {
public:
    Witness(std::vector<PhysicalSpace::point> points, std::vector<std::uint64_t>& limits)
        : CachedCreator(typeid(PhysicalSpace::point), Sheaf::Extents{points.size()}),
          points_(std::move(points)),
          limits_(limits) {}

protected:
    [[nodiscard]] Made make() const override {
        limits_.push_back(Anchor::Cache::MemCache().limit());
        return {Sheaf::makeArray(points_)};
    }
    [[nodiscard]] std::uint64_t bytesToMake() const override {
        return points_.size() * sizeof(PhysicalSpace::point);
    }

private:
    std::vector<PhysicalSpace::point> points_;
    std::vector<std::uint64_t>& limits_;
};

TEST_F(ViewPageTest, WhatAPageHoldsIsTakenOffTheCacheUntilItIsMade) {
    const std::uint64_t limit = Anchor::Cache::MemCache().limit();
    std::vector<std::uint64_t> limits;
    GridBuilder grid(*bundle_, 0, "cloud");
    for (const char* const fragment : {"a", "b"})
        grid.field("Positions", fragment, Anchor::makeStrong<Witness>(randomPlaces(1000, 1), limits));
    static_cast<void>(make());
    ASSERT_EQ(limits.size(), 2U);
    EXPECT_EQ(limits[0], limit);
    EXPECT_LE(limits[1], limit - 1000 * sizeof(PhysicalSpace::point));
    EXPECT_EQ(Anchor::Cache::MemCache().limit(), limit);
}

TEST_F(ViewPageTest, AHostStopsTheWork) {
    struct Stop {};
    class Impatient final : public Progress {
    public:
        void check() override { throw Stop(); }
    } impatient;
    GridBuilder(*bundle_, 0, "cloud").field("Positions", "", randomPlaces(10, 1));
    EXPECT_THROW((void)makeViewPage(Inputs(bundle_), {}, impatient), Stop);
}

} // namespace
} // namespace Tidewatch
