// SPDX-License-Identifier: Apache-2.0
#include "pcd/reduceData.hpp"

#include "pcd/CellSelector.hpp"
#include "support/ThreadWorkers.hpp"

#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <ostream>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

namespace {

using ExportLib::CellSelector;
using ExportLib::quant;
using Strategy = CellSelector::Strategy;
using Point = Geom::PhysicalSpace::point;
using Points = std::vector<Point>;
using Intensities = std::vector<unsigned short>;
using Indices = std::vector<unsigned long long>;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double smallest = std::numeric_limits<double>::denorm_min();
constexpr std::array strategies{Strategy::SortNarrow, Strategy::CompareWide, Strategy::CompareKeys,
                                Strategy::CompareAnyKeys};

/// The plain version: one ordered tree of the points by cell, one of the cells.
Indices byTrees(double cellSize, const Points& points, const Intensities& intensities, const Point& origin) {
    using Key = std::tuple<int, int, int>;
    const auto number = [cellSize](double value, double from) {
        return static_cast<int>(static_cast<std::uint32_t>(quant(value, from, cellSize)));
    };
    std::multimap<Key, unsigned long long> members;
    std::set<Key> cells;
    for (std::size_t i = 0; i < points.size(); ++i) {
        const Key key{number(points[i].x, origin.x), number(points[i].y, origin.y),
                      number(points[i].z, origin.z)};
        members.emplace(key, i);
        cells.insert(key);
    }
    Indices result;
    for (const Key& key : cells) {
        const auto [begin, end] = members.equal_range(key);
        unsigned long long chosen = 0;
        if (intensities.size() != points.size()) {
            chosen = begin->second;
        } else {
            unsigned short best = 0;
            for (auto member = begin; member != end; ++member) {
                if (intensities[member->second] > best) {
                    chosen = member->second;
                    best = intensities[member->second];
                }
            }
        }
        result.push_back(chosen);
    }
    return result;
}

Indices reduce(double cellSize, const Points& points, const Intensities& intensities = {},
               const Point& origin = {}) {
    return ExportLib::reduceData(cellSize, points, intensities, origin, {});
}

/// Compares reduceData and every strategy that the cloud allows with the plain version; returns how many were
/// compared.
int expectAsByTrees(double cellSize, const Points& points, const Intensities& intensities,
                    const Point& origin) {
    const Indices expected = byTrees(cellSize, points, intensities, origin);
    EXPECT_EQ(reduce(cellSize, points, intensities, origin), expected) << "cell size " << cellSize;
    int compared = 0;
    if (points.empty())
        return compared;
    const CellSelector selector(cellSize, points, intensities, origin);
    for (const Strategy strategy : strategies) {
        if (selector.supports(strategy)) {
            EXPECT_EQ(selector.select(strategy), expected)
                << "strategy " << static_cast<int>(strategy) << ", cell size " << cellSize;
            ++compared;
        }
    }
    return compared;
}

TEST(Quant, QuotientIsTruncatedTowardZero) {
    EXPECT_EQ(quant(10.0, 0.0, 2.0), 5U);
    EXPECT_EQ(quant(11.9, 0.0, 2.0), 5U);
    EXPECT_EQ(quant(13.0, 1.5, 0.5), 23U);
    EXPECT_EQ(quant(0.999, 0.0, 1.0), 0U);
}

TEST(Quant, QuotientsBetweenMinusOneAndOneGiveZero) {
    EXPECT_EQ(quant(-0.999, 0.0, 1.0), 0U);
    EXPECT_EQ(quant(-1.0, 0.0, 1.0), std::numeric_limits<unsigned long long>::max());
    EXPECT_EQ(quant(-2.5, 0.0, 1.0), std::numeric_limits<unsigned long long>::max() - 1);
}

TEST(Quant, NegativeCellSizeTurnsTheSignOver) {
    EXPECT_EQ(quant(-7.0, 0.0, -2.0), 3U);
    EXPECT_EQ(quant(7.0, 0.0, -2.0), std::numeric_limits<unsigned long long>::max() - 2);
}

TEST(Quant, QuotientsOfTheUpperHalfAreConvertedAsUnsigned) {
    EXPECT_EQ(quant(0x1p63, 0.0, 1.0), 1ULL << 63);
    EXPECT_EQ(quant(0x1.8p63, 0.0, 1.0), 3ULL << 62);
    EXPECT_EQ(quant(0x1.fffffffffffffp63, 0.0, 1.0), 0xfffffffffffff800ULL);
    EXPECT_EQ(quant(0x1.fffffffffffffp62, 0.0, 1.0), 0x7ffffffffffffc00ULL);
}

TEST(Quant, QuotientsBeyondSixtyFourBitsGiveZero) {
    EXPECT_EQ(quant(0x1p64, 0.0, 1.0), 0U);
    EXPECT_EQ(quant(1e300, 0.0, 1.0), 0U);
    EXPECT_EQ(quant(-0x1p63, 0.0, 1.0), 1ULL << 63);
    EXPECT_EQ(quant(std::nextafter(-0x1p63, -infinity), 0.0, 1.0), 0U);
    EXPECT_EQ(quant(-1e300, 0.0, 1.0), 0U);
}

TEST(Quant, NotANumberAndInfinitiesGiveZero) {
    EXPECT_EQ(quant(nan, 0.0, 1.0), 0U);
    EXPECT_EQ(quant(1.0, nan, 1.0), 0U);
    EXPECT_EQ(quant(1.0, 0.0, nan), 0U);
    EXPECT_EQ(quant(infinity, 0.0, 1.0), 0U);
    EXPECT_EQ(quant(-infinity, 0.0, 1.0), 0U);
    EXPECT_EQ(quant(infinity, infinity, 1.0), 0U);
    EXPECT_EQ(quant(1.0, 0.0, infinity), 0U);
    EXPECT_EQ(quant(1.0, 0.0, 0.0), 0U);
    EXPECT_EQ(quant(-1.0, 0.0, 0.0), 0U);
    EXPECT_EQ(quant(0.0, 0.0, 0.0), 0U);
    EXPECT_EQ(quant(1.0, 0.0, smallest), 0U);
}

TEST(ReduceData, NoPointsYieldNoIndices) {
    EXPECT_EQ(reduce(1.0, {}), Indices{});
    EXPECT_EQ(reduce(0.0, {}, {7, 8}), Indices{});
}

TEST(ReduceData, OnePointYieldsItsIndex) {
    EXPECT_EQ(reduce(1.0, {{5, 6, 7}}), Indices{0});
    EXPECT_EQ(reduce(1.0, {{5, 6, 7}}, {0}), Indices{0});
}

TEST(ReduceData, PointsOfOneCellCollapseAndOthersEachKeepOne) {
    EXPECT_EQ(reduce(1.0, {{0.1, 0.1, 0.1}, {0.9, 0.9, 0.9}, {1.1, 0, 0}, {0, 1.1, 0}, {0, 0, 1.1}}),
              (Indices{0, 4, 3, 2}));
}

TEST(ReduceData, OrderFollowsTheCellsAndNotThePoints) {
    EXPECT_EQ(reduce(1.0, {{5, 0, 0}, {1, 0, 0}}), (Indices{1, 0}));
}

TEST(ReduceData, KeysAreComparedAsSignedNumbers) {
    EXPECT_EQ(reduce(1.0, {{0, 0, 0}, {-5, 0, 0}, {5, 0, 0}}), (Indices{1, 0, 2}));
}

TEST(ReduceData, AllIntensitiesOfACellZeroYieldsPointZero) {
    EXPECT_EQ(reduce(1.0, {{0, 0, 0}, {0.5, 0, 0}, {3, 0, 0}}, {0, 0, 5}), (Indices{0, 2}));
    EXPECT_EQ(reduce(1.0, {{9, 0, 0}, {1, 0, 0}, {2, 0, 0}, {2.5, 0, 0}}, {4, 0, 0, 0}), (Indices{0, 0, 0}));
}

TEST(ReduceData, BrightestPointOfACellIsLeft) {
    EXPECT_EQ(reduce(1.0, {{0, 0, 0}, {0.5, 0, 0}}, {3, 7}), Indices{1});
    EXPECT_EQ(reduce(1.0, {{0, 0, 0}, {0.5, 0, 0}}, {32767, 65535}), Indices{1});
}

TEST(ReduceData, EqualIntensitiesOfACellKeepTheLowestIndex) {
    EXPECT_EQ(reduce(1.0, {{3, 0, 0}, {0, 0, 0}, {0.5, 0, 0}, {0.7, 0, 0}}, {1, 6, 6, 6}), (Indices{1, 0}));
}

TEST(ReduceData, IntensitiesOfAnotherLengthLeaveTheFirstPointOfEachCell) {
    const Points points{{0.5, 0, 0}, {0.6, 0, 0}, {2, 0, 0}, {2.1, 0, 0}};
    EXPECT_EQ(reduce(1.0, points), (Indices{0, 2}));
    EXPECT_EQ(reduce(1.0, points, {0, 9, 0}), (Indices{0, 2}));
    EXPECT_EQ(reduce(1.0, points, {0, 9, 0, 9, 9}), (Indices{0, 2}));
}

TEST(ReduceData, CoordinatesJustBelowTheOriginShareTheCellAboveIt) {
    EXPECT_EQ(reduce(1.0, {{99.5, 0, 0}, {100.5, 0, 0}, {98.9, 0, 0}}, {}, {100, 0, 0}), (Indices{2, 0}));
}

TEST(ReduceData, CellSizeZeroMakesTheCloudOneCell) {
    const Points points{{0, 0, 0}, {5, -5, 5}, {1e9, 1e9, 1e9}};
    EXPECT_EQ(reduce(0.0, points), Indices{0});
    EXPECT_EQ(reduce(0.0, points, {3, 1, 8}), Indices{2});
    EXPECT_EQ(reduce(0.0, points, {0, 0, 0}), Indices{0});
}

TEST(ReduceData, CellNumbersWrapAtThirtyTwoBits) {
    // 2^31 becomes -2^31 and so comes first; 2^32 shares the cell of 0.
    EXPECT_EQ(reduce(1.0, {{0, 0, 0}, {2147483648.0, 0, 0}, {4294967296.5, 0, 0}}), (Indices{1, 0}));
}

TEST(ReduceData, CoordinatesThatAreNoNumbersShareTheCellOfTheOrigin) {
    EXPECT_EQ(
        reduce(1.0,
               {{-3, 0, 0}, {nan, nan, nan}, {infinity, -infinity, 0.5}, {0.5, 0.5, 0.5}, {1e300, 0, 0}}),
        (Indices{0, 1}));
}

TEST(ReduceData, ResultHasRoomForHalfThePoints) {
    const Points points(1001, Point{1, 2, 3});
    EXPECT_GE(reduce(1.0, points).capacity(), 500U);
}

struct CloudKind {
    const char* name;
    double extentXY;
    double extentZ;
    double cellSize;
    Strategy preferred;

    friend void PrintTo(const CloudKind& kind, std::ostream* out) { *out << kind.name; }
};

class ReduceDataStrategy : public testing::TestWithParam<CloudKind> {};

TEST_P(ReduceDataStrategy, IsChosenAndGivesWhatTheTreesGive) {
    const CloudKind& kind = GetParam();
    std::mt19937_64 random(11);
    std::uniform_real_distribution<double> horizontal(-kind.extentXY, kind.extentXY);
    std::uniform_real_distribution<double> vertical(-kind.extentZ, kind.extentZ);
    Points points;
    Intensities intensities;
    for (int i = 0; i < 20000; ++i) {
        const Point p{horizontal(random), horizontal(random), vertical(random)};
        // Every cell is visited again soon and once more much later.
        points.push_back(p);
        points.push_back({p.x, p.y, p.z});
        points.push_back(points[random() % points.size()]);
        for (int j = 0; j < 3; ++j)
            intensities.push_back(static_cast<unsigned short>(random() % 4));
    }
    const CellSelector selector(kind.cellSize, points, intensities, {});
    EXPECT_EQ(selector.preferred(), kind.preferred);
    const int slower = static_cast<int>(strategies.size()) - static_cast<int>(kind.preferred);
    EXPECT_EQ(expectAsByTrees(kind.cellSize, points, intensities, {}), slower);
    EXPECT_EQ(expectAsByTrees(kind.cellSize, points, {}, {}), slower);
}

TEST(ReduceData, WorkersChangeNothing) {
    std::mt19937_64 random(3);
    for (const std::size_t count : {1U, 65'535U, 65'536U, 65'537U, 400'000U, 700'000U}) {
        for (const double cellSize : {0.5, 0.001, 1e-7}) {
            Points points;
            Intensities intensities;
            // Some cells have so many points in a row that they reach over whole blocks.
            while (points.size() < count) {
                const Point p{static_cast<double>(random() % 1000), static_cast<double>(random() % 50), 0};
                const std::size_t length = random() % 20 == 0 ? 1 + random() % 150'000 : 1 + random() % 300;
                for (std::size_t i = 0; i < length && points.size() < count; ++i) {
                    points.push_back(random() % 100 == 0 ? Point{p.x + 1, p.y, p.z} : p);
                    intensities.push_back(static_cast<unsigned short>(random() % 3));
                }
            }
            const Indices expected = byTrees(cellSize, points, intensities, {});
            EXPECT_EQ(reduce(cellSize, points, intensities), expected) << count << ' ' << cellSize;
            for (const unsigned threads : {2U, 3U, 16U}) {
                Support::ThreadWorkers workers(threads);
                EXPECT_EQ(ExportLib::reduceData(cellSize, points, intensities, {}, {}, {}, &workers),
                          expected)
                    << count << ' ' << cellSize << ' ' << threads;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Strategies, ReduceDataStrategy,
    testing::Values(CloudKind{"SortNarrowFewCells", 100, 2, 5.0, Strategy::SortNarrow},
                    CloudKind{"SortNarrow", 100, 5, 0.1, Strategy::SortNarrow},
                    CloudKind{"SortNarrowOneColumn", 0.9, 5000, 1.0, Strategy::SortNarrow},
                    CloudKind{"CompareWide", 1000, 50, 0.001, Strategy::CompareWide},
                    CloudKind{"CompareWideFull", 1.2e6, 1.2e6, 1.0, Strategy::CompareWide},
                    CloudKind{"CompareKeys", 1e9, 1e9, 1.0, Strategy::CompareKeys},
                    CloudKind{"CompareKeysFull", 1e19, 1e19, 1.0, Strategy::CompareKeys}),
    [](const auto& instance) { return std::string(instance.param.name); });

double anyCoordinate(std::mt19937_64& random, unsigned kind) {
    const auto unit = static_cast<double>(random() >> 11) * 0x1p-53;
    switch (kind % 8) {
    case 0:
        return unit * 10.0;
    case 1:
        return unit * 20.0 - 10.0;
    case 2:
        return unit * 1e5 - 5e4;
    case 3:
        return (unit - 0.5) * 1e10;
    case 4:
        return (unit - 0.5) * 4e19;
    case 5:
        return std::bit_cast<double>(random());
    case 6:
        switch (random() % 8) {
        case 0:
            return nan;
        case 1:
            return infinity;
        case 2:
            return -infinity;
        case 3:
            return 1e300;
        case 4:
            return -1e18;
        default:
            return unit * 6.0 - 3.0;
        }
    default:
        return static_cast<double>(random() % 7) - 3.0;
    }
}

TEST(ReduceData, RandomCloudsGiveWhatTheTreesGive) {
    constexpr std::array cellSizes{1.0,  0.37, 5.0,   0.0,      -1.0, -0.25,   1e-3,
                                   1e-9, 1e6,  1e300, smallest, nan,  infinity};
    std::mt19937_64 random(3);
    std::array<int, strategies.size() + 1> compared{};
    for (int round = 0; round < 3000; ++round) {
        const double cellSize = cellSizes[random() % cellSizes.size()];
        const std::size_t count = round % 100 == 0 ? 3000 : random() % 60;
        const auto kind = static_cast<unsigned>(random() % 8);
        const bool mixed = random() % 4 == 0;
        Points points;
        for (std::size_t i = 0; i < count; ++i) {
            if (!points.empty() && random() % 3 == 0) {
                points.push_back(points[random() % 2 == 0 ? points.size() - 1 : random() % points.size()]);
                continue;
            }
            const auto coordinate = [&] {
                return anyCoordinate(random, mixed ? static_cast<unsigned>(random() % 8) : kind);
            };
            const double x = coordinate();
            const double y = coordinate();
            points.push_back({x, y, coordinate()});
        }
        Intensities intensities;
        const auto levels = std::array<std::uint64_t, 4>{1, 2, 5, 65536}[random() % 4];
        switch (random() % 5) {
        case 0:
            break;
        case 1:
            intensities.assign(count / 2, 9);
            break;
        default:
            for (std::size_t i = 0; i < count; ++i)
                intensities.push_back(static_cast<unsigned short>(random() % levels));
        }
        Point origin{};
        if (random() % 2 == 0)
            origin = {anyCoordinate(random, kind), anyCoordinate(random, 1), anyCoordinate(random, 6)};
        ++compared[static_cast<std::size_t>(expectAsByTrees(cellSize, points, intensities, origin))];
        ASSERT_FALSE(HasFailure()) << "round " << round;
    }
    // Two strategies, which take any cloud of this size, up to all: each has had its share of the clouds.
    for (std::size_t i = 2; i < compared.size(); ++i)
        EXPECT_GT(compared[i], 50) << i;
}

} // namespace
