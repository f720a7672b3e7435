// SPDX-License-Identifier: Apache-2.0
#include "library/points/cellsAsPoints.hpp"

#include "sheaf/UniformCartesianArray.hpp"
#include "support/BundleBuilder.hpp"
#include "support/bundleQueries.hpp"

#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using Support::fieldOf;
using Support::gridAt;
using Support::GridBuilder;
using Support::Points;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
using Point = Geom::PhysicalSpace::point;

Sheaf::Field::Creator lattice(std::uint64_t columns, std::uint64_t rows) {
    return Anchor::makeStrong<Sheaf::HeldCreator>(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
        Point{10, 20, 0}, Geom::PhysicalSpace::vector{2, 5, 1}, Sheaf::MultiIndex<3>{columns, rows, 1}));
}

template <class T>
Sheaf::Field::Creator cells(std::uint64_t columns, std::uint64_t rows, std::vector<T> values) {
    return Anchor::makeStrong<Sheaf::HeldCreator>(
        Sheaf::makeArray(Sheaf::Extents{columns, rows, 1}, std::move(values)));
}

template <class T>
std::vector<T> arrayOf(const Sheaf::Bundle& bundle, const std::string& field) {
    return Support::arrayOf<T>(bundle, "dem", field, "");
}

std::vector<std::array<double, 3>> positionsOf(const Sheaf::Bundle& bundle) {
    std::vector<std::array<double, 3>> positions;
    for (const Point& point : arrayOf<Point>(bundle, "Positions"))
        positions.push_back({point.x, point.y, point.z});
    return positions;
}

using Position = std::array<double, 3>;

TEST(CellsAsPoints, CentresWithAValueBecomePointsInTheOrderOfTheCells) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "dem")
        .field("Positions", "", lattice(3, 2))
        .field("Band1", "", cells(3, 2, std::vector<double>{1, 2, nan, 4, 5, 6}))
        .field("Band2", "", cells(3, 2, std::vector<short>{10, 20, 30, 40, 50, 60}))
        .field("CellType", "", cells(3, 2, std::vector<unsigned char>{1, 0, 1, 1, 1, 2}));
    std::set<std::string> read;
    const ChosenPoints made = cellsAsPoints(*bundle, {}, Selection(Filters{}), read);
    EXPECT_THAT(positionsOf(*made.bundle), ElementsAre(Position{10, 20, 1}, Position{10, 25, 4},
                                                       Position{12, 25, 5}, Position{14, 25, 6}));
    EXPECT_THAT(arrayOf<short>(*made.bundle, "Band2"), ElementsAre(10, 40, 50, 60));
    EXPECT_THAT(arrayOf<double>(*made.bundle, "Band1"), ElementsAre(1, 4, 5, 6));
    EXPECT_THAT(read, UnorderedElementsAre("Band1", "CellType"));
    EXPECT_FALSE(fieldOf(*gridAt(*made.bundle, 0, "dem"), "CellType"));
}

TEST(CellsAsPoints, HeightsAreTheBandOrFieldThatIsAskedFor) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "dem")
        .field("Positions", "", lattice(2, 1))
        .field("Depth", "", cells(2, 1, std::vector<float>{-3, -4}))
        .field("Level", "", cells(2, 1, std::vector<int>{7, 8}));
    std::set<std::string> read;
    EXPECT_THAT(positionsOf(*cellsAsPoints(*bundle, {"Level"}, Selection(Filters{}), read).bundle),
                ElementsAre(Position{10, 20, 7}, Position{12, 20, 8}));
    EXPECT_THAT(positionsOf(*cellsAsPoints(*bundle, {"2"}, Selection(Filters{}), read).bundle),
                ElementsAre(Position{10, 20, 7}, Position{12, 20, 8}));
    EXPECT_THAT(positionsOf(*cellsAsPoints(*bundle, {"1"}, Selection(Filters{}), read).bundle),
                ElementsAre(Position{10, 20, -3}, Position{12, 20, -4}));
    EXPECT_THAT(
        Support::modelErrorOf(
            [&] { static_cast<void>(cellsAsPoints(*bundle, {"3"}, Selection(Filters{}), read)); }),
        AllOf(HasSubstr("grid \"dem\" at time 0"), HasSubstr("no field 3"), HasSubstr("Depth, Level")));
}

TEST(CellsAsPoints, BandTenIsNotTheTenthByName) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder grid(*bundle, 0, "dem");
    grid.field("Positions", "", lattice(1, 1));
    for (int band = 1; band <= 12; ++band)
        grid.field("Band" + std::to_string(band), "", cells(1, 1, std::vector<int>{band}));
    std::set<std::string> read;
    EXPECT_THAT(positionsOf(*cellsAsPoints(*bundle, {"10"}, Selection(Filters{}), read).bundle),
                ElementsAre(Position{10, 20, 10}));
}

TEST(CellsAsPoints, PointsStayAsTheyAre) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "dem")
        .field("Positions", "", Points{{1, 2, 3}})
        .field("CellType", "", std::vector<unsigned char>{0});
    std::set<std::string> read;
    const ChosenPoints made = cellsAsPoints(*bundle, {}, Selection(Filters{}), read);
    EXPECT_THAT(positionsOf(*made.bundle), ElementsAre(Position{1, 2, 3}));
    EXPECT_THAT(arrayOf<unsigned char>(*made.bundle, "CellType"), ElementsAre(0));
    EXPECT_TRUE(read.empty());
}

TEST(CellsAsPoints, LargeRandomRasterGivesWhatAPlainLoopGives) {
    constexpr std::uint64_t columns = 123;
    constexpr std::uint64_t rows = 77;
    std::mt19937 random(2);
    std::vector<float> heights(columns * rows);
    std::vector<unsigned char> types(columns * rows);
    std::vector<Position> expected;
    for (std::size_t cell = 0; cell < heights.size(); ++cell) {
        heights[cell] =
            random() % 5 == 0 ? std::numeric_limits<float>::infinity() : static_cast<float>(random() % 100);
        types[cell] = static_cast<unsigned char>(random() % 3);
    }
    for (std::uint64_t row = 0; row < rows; ++row) {
        for (std::uint64_t column = 0; column < columns; ++column) {
            const std::size_t cell = row * columns + column;
            if (std::isfinite(heights[cell]) && types[cell] != 0)
                expected.push_back({10 + static_cast<double>(column) * 2, 20 + static_cast<double>(row) * 5,
                                    static_cast<double>(heights[cell])});
        }
    }
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "dem")
        .field("Positions", "", lattice(columns, rows))
        .field("Band1", "", cells(columns, rows, heights))
        .field("CellType", "", cells(columns, rows, types));
    std::set<std::string> read;
    EXPECT_EQ(positionsOf(*cellsAsPoints(*bundle, {}, Selection(Filters{}), read).bundle), expected);
}

} // namespace
} // namespace Tidewatch
