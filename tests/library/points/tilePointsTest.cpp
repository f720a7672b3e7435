// SPDX-License-Identifier: Apache-2.0
#include "library/points/tilePoints.hpp"

#include "anchor/Cache.hpp"
#include "anchor/Error.hpp"
#include "library/report/UsageError.hpp"
#include "sheaf/HeldCreator.hpp"
#include "sheaf/UniformCartesianArray.hpp"
#include "support/BundleBuilder.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/ThreadWorkers.hpp"

#include <cmath>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using Support::GridBuilder;
using Support::Points;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST(TileLayout, SquaresAreHalfOpenAndNamedByTheirCorners) {
    const TileLayout layout(1000, {0, 0});
    const auto name = [&](double x, double y) { return layout.name(layout.at(x, y)); };
    EXPECT_EQ(name(432'000, 5'921'999.999), "432000_5921000");
    EXPECT_EQ(name(431'999.999, 5'922'000), "431000_5922000");
    EXPECT_EQ(name(6'000'000, 0), "6000000_0");
    EXPECT_EQ(name(-0.001, -1000), "-1000_-1000");
    const TileLayout shifted(0.5, {0.25, -10});
    EXPECT_EQ(shifted.name(shifted.at(0.25, -10.25)), "0.25_-10.5");
}

TEST(TileLayout, EveryPlaceIsInsideTheSquareThatItIsIn) {
    std::mt19937_64 random(5);
    for (int i = 0; i < 200'000; ++i) {
        const double size = std::ldexp(1.0 + static_cast<double>(random() % 1000) / 999,
                                       static_cast<int>(random() % 20) - 10);
        const TileLayout layout(size, {static_cast<double>(random() % 1000) / 7, -3.1});
        const double x =
            static_cast<double>(static_cast<std::int64_t>(random() % 20'000'000) - 10'000'000) / 3;
        // Half of the places lie on an edge.
        const auto at = layout.at(x, 0);
        const double place = i % 2 == 0 ? x : layout.corner(at)[0];
        ASSERT_TRUE(layout.isPlaced(place, 0));
        const auto tile = layout.at(place, 0);
        ASSERT_LE(layout.corner(tile)[0], place);
        ASSERT_LT(place, layout.corner({tile.column + 1, tile.row})[0]);
    }
}

TEST(TileLayout, PlacesThatCannotBeCountedAreNotPlaced) {
    const TileLayout layout(1, {0, 0});
    EXPECT_FALSE(layout.isPlaced(std::numeric_limits<double>::quiet_NaN(), 0));
    EXPECT_FALSE(layout.isPlaced(0, std::numeric_limits<double>::infinity()));
    EXPECT_FALSE(layout.isPlaced(1e17, 0));
    EXPECT_TRUE(layout.isPlaced(1e12, -1e12));
    EXPECT_THROW(TileLayout(0, {0, 0}), UsageError);
    EXPECT_THROW(TileLayout(std::numeric_limits<double>::quiet_NaN(), {0, 0}), UsageError);
    EXPECT_THROW(TileLayout(1, {0, std::numeric_limits<double>::infinity()}), UsageError);
}

struct TilePoints : ::testing::Test {
    ~TilePoints() override { Anchor::Cache::MemCache().setLimit(Anchor::Cache::defaultLimit); }

    [[nodiscard]] TiledPoints tile(double size, bool areGrids = false, unsigned workers = 1,
                                   const Filters& filters = {}, std::uint64_t limit = 1U << 30) const {
        TileOptions options{TileLayout(size, {0, 0})};
        options.areGrids = areGrids;
        options.scratch = folder.path() / "not" / "yet";
        Selection selection(filters);
        return tilePoints(*bundle, options, selection, limit, Support::threadWorkers(workers).get(), {});
    }

    [[nodiscard]] std::string errorOf(double size, std::uint64_t limit = 1U << 30) const {
        try {
            static_cast<void>(tile(size, false, 1, {}, limit));
        } catch (const Anchor::Error& error) {
            return error.what();
        }
        return "no error";
    }

    static Anchor::StrongPtr<Sheaf::Grid> gridOf(const TiledPoints& tiled, const std::string& name) {
        return tiled.bundle->slices().at(0).lock()->grids().at(name).lock();
    }

    template <class T>
    static std::map<std::string, std::vector<T>> valuesOf(const Sheaf::Grid& grid, const std::string& name) {
        std::map<std::string, std::vector<T>> values;
        const auto field =
            grid.getField(grid.findCartesianChart({}), name, grid.skeletons().findVertices(-1));
        if (!field)
            return values;
        field->forEachFragment([&](const auto& fragment, const auto& data) {
            values[fragment->name()] =
                Anchor::dynamicCast<Sheaf::TypedArray<T>>(data->create(false))->base_vector();
            return true;
        });
        return values;
    }

    Support::TemporaryFolder folder;
    Anchor::StrongPtr<Sheaf::Bundle> bundle = Anchor::makeStrong<Sheaf::Bundle>();
};

TEST_F(TilePoints, EachPointIsInItsSquareInTheOrderOfTheInput) {
    std::mt19937 random(1);
    std::map<std::string, Points> expected;
    std::map<std::string, std::vector<unsigned short>> intensities;
    std::map<std::string, std::vector<double>> times;
    GridBuilder grid(*bundle, 0, "coast");
    const TileLayout layout(10, {0, 0});
    unsigned short number = 0;
    for (const std::string fragment : {"000000", "000001", "000002"}) {
        Points points;
        std::vector<unsigned short> numbers;
        std::vector<double> seconds;
        for (int i = 0; i < 5000; ++i) {
            const Geom::PhysicalSpace::point p{static_cast<double>(random() % 1000) / 10 - 30,
                                               static_cast<double>(random() % 1000) / 10, 1.0 * i};
            points.push_back(p);
            numbers.push_back(++number);
            seconds.push_back(number / 8.0);
            const std::string name = layout.name(layout.at(p.x, p.y));
            expected[name].push_back(p);
            intensities[name].push_back(number);
            times[name].push_back(number / 8.0);
        }
        grid.field("Positions", fragment, points).field("Intensity", fragment, numbers);
        grid.field("GPSTime", fragment, seconds);
    }
    for (const unsigned workers : {1U, 3U}) {
        const TiledPoints tiled = tile(10, false, workers);
        const auto coast = gridOf(tiled, "coast");
        EXPECT_EQ(valuesOf<Geom::PhysicalSpace::point>(*coast, "Positions"), expected);
        EXPECT_EQ(valuesOf<unsigned short>(*coast, "Intensity"), intensities);
        EXPECT_EQ(valuesOf<double>(*coast, "GPSTime"), times);
        EXPECT_TRUE(tiled.tiles.empty());
    }
    const TiledPoints grids = tile(10, true);
    EXPECT_EQ(grids.tiles.size(), expected.size());
    for (const auto& [name, points] : expected) {
        const auto one = gridOf(grids, "coast_" + name);
        EXPECT_THAT(valuesOf<Geom::PhysicalSpace::point>(*one, "Positions"),
                    ElementsAre(std::pair(name, points)));
        EXPECT_EQ(grids.tiles.at("coast_" + name).grid, "coast");
        EXPECT_EQ(grids.tiles.at("coast_" + name).name, name);
    }
    // The scratch file has no name.
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST_F(TilePoints, LargeFragmentIsCutInPartsInTheOrderOfTheInput) {
    // More than is copied at once.
    constexpr std::size_t count = 900'000;
    Points points(count);
    std::vector<unsigned int> numbers(count);
    std::map<std::string, std::vector<unsigned int>> expected;
    for (std::size_t i = 0; i < count; ++i) {
        points[i] = {static_cast<double>(i * 7919 % 30), 0.5, 1.0 * static_cast<double>(i)};
        numbers[i] = static_cast<unsigned int>(i);
        expected[points[i].x < 10 ? "0_0" : points[i].x < 20 ? "10_0" : "20_0"].push_back(numbers[i]);
    }
    GridBuilder(*bundle, 0, "coast").field("Positions", "a", points).field("Number", "a", numbers);
    for (const unsigned workers : {1U, 3U}) {
        const TiledPoints tiled = tile(10, false, workers);
        const auto coast = gridOf(tiled, "coast");
        EXPECT_TRUE(valuesOf<unsigned int>(*coast, "Number") == expected);
        for (const auto& [name, places] : valuesOf<Geom::PhysicalSpace::point>(*coast, "Positions")) {
            ASSERT_EQ(places.size(), expected.at(name).size());
            std::size_t wrong = 0;
            for (std::size_t i = 0; i < places.size(); ++i)
                wrong += places[i] == points[expected.at(name)[i]] ? 0U : 1U;
            EXPECT_EQ(wrong, 0U) << name;
        }
    }
    points[800'000].y = std::numeric_limits<double>::infinity();
    bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "coast").field("Positions", "a", points);
    EXPECT_THAT(errorOf(10), HasSubstr("point 800000: x "));
}

TEST_F(TilePoints, ArraysComeAgainAfterTheCacheHasDroppedThem) {
    GridBuilder(*bundle, 0, "coast").field("Positions", "a", Points{{1, 1, 1}, {12, 1, 2}, {2, 2, 3}});
    const TiledPoints tiled = tile(10);
    Anchor::Cache::MemCache().setLimit(0);
    for (int round = 0; round < 2; ++round) {
        const auto values = valuesOf<Geom::PhysicalSpace::point>(*gridOf(tiled, "coast"), "Positions");
        EXPECT_THAT(values.at("0_0"),
                    ElementsAre(Geom::PhysicalSpace::point{1, 1, 1}, Geom::PhysicalSpace::point{2, 2, 3}));
        EXPECT_THAT(values.at("10_0"), ElementsAre(Geom::PhysicalSpace::point{12, 1, 2}));
    }
}

TEST_F(TilePoints, FieldsThatAFragmentLacksAreZerosAndNamed) {
    GridBuilder(*bundle, 0, "coast")
        .field("Positions", "a", Points{{1, 1, 1}})
        .field("Positions", "b", Points{{2, 1, 1}})
        .field("Intensity", "b", std::vector<unsigned short>{7});
    const TiledPoints tiled = tile(10);
    EXPECT_THAT(valuesOf<unsigned short>(*gridOf(tiled, "coast"), "Intensity").at("0_0"), ElementsAre(0, 7));
    EXPECT_THAT(tiled.notes, Contains(HasSubstr("Intensity is zeros where a fragment has no such values")));
}

TEST_F(TilePoints, OnlyTheFieldsAndGridsThatAreSelectedAreCut) {
    for (const std::string name : {"coast", "pier"})
        GridBuilder(*bundle, 0, name)
            .field("Positions", "a", Points{{1, 1, 1}})
            .field("Intensity", "a", std::vector<unsigned short>{7})
            .field("GPSTime", "a", std::vector<double>{7});
    Filters filters;
    filters.grids = {"coast"};
    filters.fields = {"Intensity"};
    const TiledPoints tiled = tile(10, false, 1, filters);
    const auto coast = gridOf(tiled, "coast");
    EXPECT_EQ(valuesOf<unsigned short>(*coast, "Intensity").size(), 1U);
    EXPECT_EQ(valuesOf<Geom::PhysicalSpace::point>(*coast, "Positions").size(), 1U);
    EXPECT_TRUE(valuesOf<double>(*coast, "GPSTime").empty());
    EXPECT_EQ(valuesOf<double>(*gridOf(tiled, "pier"), "GPSTime").begin()->first, "a");
}

TEST_F(TilePoints, LatticesStayAsTheyAre) {
    GridBuilder(*bundle, 0, "heights")
        .field("Positions", "",
               Anchor::makeStrong<Sheaf::HeldCreator>(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
                   Geom::PhysicalSpace::point{0, 0, 0}, Geom::PhysicalSpace::vector{2, 2, 1},
                   Sheaf::MultiIndex<3>{4, 3, 1})))
        .field("Height", "", std::vector<float>(12, 1.5F));
    const TiledPoints tiled = tile(1, true);
    const auto heights = gridOf(tiled, "heights");
    EXPECT_TRUE(
        heights->getField(heights->findCartesianChart({}), "Height", heights->skeletons().findVertices(-1)));
}

TEST_F(TilePoints, PointsWithoutAPlaceAndTooManySquaresAreErrorsThatNameTheGrid) {
    GridBuilder(*bundle, 0, "coast")
        .field("Positions", "a", Points{{1, 1, 1}, {std::numeric_limits<double>::quiet_NaN(), 2, 1}});
    EXPECT_THAT(errorOf(10),
                HasSubstr("grid \"coast\" at time 0: point 1: x nan, y 2 cannot be put into a square"));

    bundle = Anchor::makeStrong<Sheaf::Bundle>();
    Points line;
    for (int i = 0; i < 1000; ++i)
        line.push_back({1.0 * i, 0, 0});
    GridBuilder(*bundle, 0, "line").field("Positions", "a", line);
    EXPECT_EQ(errorOf(1, 1'000'000), "no error");
    EXPECT_THAT(errorOf(1, 100'000), HasSubstr("squares of 1 are too many for the limit of 100000 bytes"));

    GridBuilder(*bundle, 0, "short")
        .field("Positions", "a", Points(3))
        .field("Intensity", "a", std::vector<unsigned short>(2));
    EXPECT_THAT(errorOf(1), HasSubstr("Intensity has 2 values for 3 points"));
}

} // namespace
} // namespace Tidewatch
