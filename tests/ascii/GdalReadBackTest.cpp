// SPDX-License-Identifier: Apache-2.0
//
// What the exporter writes, read by GDAL's drivers for these formats.
#include "ascii/AsciiBundle.hpp"
#include "ascii/ExportPointCloudToASCII.hpp"
#include "support/ConsoleCapture.hpp"

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#ifdef TIDEWATCH_GDAL
#include <gdal.h>
#endif

namespace {

#ifdef TIDEWATCH_GDAL

using Support::GridBuilder;
using Support::heldArray;
using Support::heldLattice;
using ::testing::ElementsAre;

/// A raster as one GDAL driver reads it, rows from north to south.
struct Raster {
    Raster(const std::string& path, const char* driver, CSLConstList openOptions = nullptr) {
        GDALAllRegister();
        const char* const drivers[]{driver, nullptr};
        const GDALDatasetH dataset =
            GDALOpenEx(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY | GDAL_OF_VERBOSE_ERROR, drivers,
                       openOptions, nullptr);
        if (dataset == nullptr)
            throw std::runtime_error(path + ": " + CPLGetLastErrorMsg());
        width = GDALGetRasterXSize(dataset);
        height = GDALGetRasterYSize(dataset);
        EXPECT_EQ(GDALGetGeoTransform(dataset, transform.data()), CE_None);
        const GDALRasterBandH band = GDALGetRasterBand(dataset, 1);
        int stated = 0;
        noData = GDALGetRasterNoDataValue(band, &stated);
        hasNoData = stated != 0;
        values.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
        EXPECT_EQ(
            GDALRasterIO(band, GF_Read, 0, 0, width, height, values.data(), width, height, GDT_Float64, 0, 0),
            CE_None);
        GDALClose(dataset);
    }

    [[nodiscard]] double at(int column, int rowFromSouth) const {
        return values[static_cast<std::size_t>((height - 1 - rowFromSouth) * width + column)];
    }

    int width = 0;
    int height = 0;
    std::array<double, 6> transform{};
    bool hasNoData = false;
    double noData = 0;
    std::vector<double> values;
};

struct GdalReadBack : ::testing::Test {
    GdalReadBack() {
        exporter.bundleptr = bundle;
        exporter.OutputPath = folder.path().string();
        exporter.FieldFilter = {"Height"};
    }

    Raster exportedGrid() {
        EXPECT_TRUE(exporter.Run());
        const char* const options[]{"DATATYPE=Float64", nullptr};
        return {folder / "Height/f.grd", "AAIGrid", options};
    }

    /// Exports a grid of one row and reads it back.
    template <class T>
    void expectSameRow(const std::vector<T>& values) {
        const Sheaf::Extents extents{values.size(), 1, 1};
        bundle = Anchor::makeStrong<Sheaf::Bundle>();
        exporter.bundleptr = bundle;
        GridBuilder(*bundle, 0, "g")
            .field("Positions", "f", heldLattice({0, 0, 0}, {1, 1, 1}, {values.size(), 1, 1}))
            .field("Height", "f", heldArray(extents, values))
            .field("CellType", "f", heldArray(extents, std::vector<unsigned char>(values.size(), 1)));
        const Raster raster = exportedGrid();
        ASSERT_EQ(raster.values.size(), values.size());
        for (std::size_t cell = 0; cell < values.size(); ++cell)
            EXPECT_EQ(raster.values[cell], static_cast<double>(values[cell]));
    }

    Support::TemporaryFolder folder;
    Support::ConsoleCapture console;
    Anchor::StrongPtr<Sheaf::Bundle> bundle = Anchor::makeStrong<Sheaf::Bundle>();
    ExportLib::ExportPointCloudToASCII exporter;
};

TEST_F(GdalReadBack, GridHasItsValuesItsNoDataAndItsPlace) {
    constexpr int width = 37;
    constexpr int height = 23;
    const Sheaf::Extents extents{width, height, 1};
    std::mt19937 random(7);
    std::vector<double> heights(width * height);
    std::vector<unsigned char> types(heights.size());
    for (std::size_t cell = 0; cell < heights.size(); ++cell) {
        heights[cell] = std::uniform_real_distribution<double>(-1000, 9000)(random);
        types[cell] = static_cast<unsigned char>(cell % 5 == 0 ? 0 : 1);
    }
    GridBuilder(*bundle, 0, "dem")
        .field("Positions", "f", heldLattice({500000.5, 5200000.25, 0}, {2.5, 2.5, 1}, {width, height, 1}))
        .field("Height", "f", heldArray(extents, heights))
        .field("CellType", "f", heldArray(extents, types));
    exporter.CellTypeFilter = {};
    exporter.CellTypeFilter.add(1, 1);

    for (const unsigned int precision : {0U, 3U}) {
        exporter.Precision = precision;
        const Raster raster = exportedGrid();
        EXPECT_EQ(raster.width, width);
        EXPECT_EQ(raster.height, height);
        // GDAL speaks of the corner of the upper left cell, the grid of the centre of the lower left one.
        // Three decimals of the centre make the corner less exact than that.
        EXPECT_NEAR(raster.transform[0], 500000.5 - 1.25, 1e-3);
        EXPECT_NEAR(raster.transform[3], 5200000.25 - 1.25 + height * 2.5, 1e-3);
        EXPECT_EQ(raster.transform[1], 2.5);
        EXPECT_EQ(raster.transform[5], -2.5);
        ASSERT_TRUE(raster.hasNoData);
        EXPECT_EQ(raster.noData, -9999);
        const double written = 0.5 * std::pow(10, -(precision == 0 ? 6.0 : precision)) + 1e-9;
        for (int row = 0; row < height; ++row) {
            for (int column = 0; column < width; ++column) {
                const auto cell = static_cast<std::size_t>(row * width + column);
                ASSERT_NEAR(raster.at(column, row), types[cell] == 1 ? heights[cell] : -9999, written)
                    << "column " << column << ", row " << row << " from the south";
            }
        }
    }
}

TEST_F(GdalReadBack, EveryScalarTypeHasItsLimits) {
    const auto check = [&](auto value) {
        using T = decltype(value);
        using Limits = std::numeric_limits<T>;
        // Numbers that a double holds too, since that is what GDAL gives back.
        const T least = Limits::is_integer ? Limits::lowest() : T(-123456.25);
        const T most = Limits::is_integer && Limits::digits <= 53 ? Limits::max() : T(1125899906842624);
        expectSameRow<T>({least, T(0), T(1), most});
    };
    check(float());
    check(double());
    check(static_cast<long double>(0));
    check(static_cast<unsigned char>(0));
    check(static_cast<unsigned short>(0));
    check(0U);
    check(0ULL);
    check(0);
}

TEST_F(GdalReadBack, FragmentWithALowOverlapAlongXHasItsPlace) {
    GridBuilder builder(*bundle, 0, "dem");
    builder.field("Positions", "f", heldLattice({100, 200, 0}, {10, 10, 1}, {4, 2, 1}))
        .field("Height", "f", heldArray<int>({4, 2, 1}, {1, 2, 3, 4, 5, 6, 7, 8}))
        .field("CellType", "f", heldArray<unsigned char>({4, 2, 1}, std::vector<unsigned char>(8, 1)));
    builder.grid().makeFragment("f")->overlapLow = Sheaf::MultiIndex<3>{1, 0, 0};
    builder.grid().makeFragment("f")->overlapHigh = Sheaf::MultiIndex<3>{1, 0, 0};
    const Raster raster = exportedGrid();
    EXPECT_THAT(raster.values, ElementsAre(6, 7, 2, 3));
    EXPECT_THAT(raster.transform, ElementsAre(105, 10, 0, 215, 0, -10));
}

TEST_F(GdalReadBack, PointsOnARegularRasterAreReadAsOne) {
    Support::Points points;
    for (int row = 0; row < 5; ++row) {
        for (int column = 0; column < 7; ++column)
            points.push_back({1000.5 + column * 0.5, 2000.25 - row * 0.5, row * 100 + column + 0.125});
    }
    GridBuilder(*bundle, 0, "cloud").field("Positions", "f", points);
    exporter.FieldFilter = {"Positions"};
    EXPECT_TRUE(exporter.Run());
    const Raster raster(folder / "Positions/f.asc", "XYZ");
    EXPECT_EQ(raster.width, 7);
    EXPECT_EQ(raster.height, 5);
    EXPECT_THAT(raster.transform, ElementsAre(1000.25, 0.5, 0, 2000.5, 0, -0.5));
    for (int row = 0; row < 5; ++row) {
        for (int column = 0; column < 7; ++column)
            EXPECT_EQ(raster.at(column, 4 - row), row * 100 + column + 0.125);
    }
}

#else

TEST(GdalReadBack, GridsAndPointsAreReadByGdal) {
    GTEST_SKIP() << "no GDAL: the tests were built without it";
}

#endif

} // namespace
