// SPDX-License-Identifier: Apache-2.0
#include "readers/raster/RasterReader.hpp"

#include "anchor/Cache.hpp"
#include "anchor/Error.hpp"
#include "ascii/ExportPointCloudToASCII.hpp"
#include "readers/raster/Description.hpp"
#include "readers/raster/Untouched.hpp"
#include "readers/raster/companions.hpp"
#include "readers/raster/drivers.hpp"
#include "sheaf/Bundle.hpp"
#include "sheaf/MemArray.hpp"
#include "sheaf/UniformCartesianArray.hpp"
#include "support/ConsoleCapture.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/reading.hpp"
#include "support/sharedData.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <cpl_conv.h>
#include <cpl_string.h>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <gdal.h>
#include <limits>
#include <memory>
#include <numeric>
#include <ogr_srs_api.h>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::AnyOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::UnorderedElementsAre;
using Transform = std::array<double, 6>;
using Bytes = std::vector<unsigned char>;
using Representation = Anchor::StrongPtr<Sheaf::Representation>;

constexpr Transform northUp{100, 10, 0, 200, 0, -5};

/// A new file for GDAL to write, closed at the end of its life.
class NewRaster {
public:
    NewRaster(const std::string& path, int width, int height, int bands, GDALDataType type,
              const std::vector<const char*>& options = {}, const char* driver = "GTiff") {
        GDALAllRegister();
        std::vector<const char*> list = options;
        list.push_back(nullptr);
        dataset_.reset(
            GDALCreate(GDALGetDriverByName(driver), path.c_str(), width, height, bands, type, list.data()));
        if (!dataset_)
            throw std::runtime_error("GDAL cannot make " + path);
    }

    [[nodiscard]] GDALDatasetH dataset() const { return dataset_.get(); }
    [[nodiscard]] GDALRasterBandH band(int number = 1) const {
        return GDALGetRasterBand(dataset_.get(), number);
    }

    NewRaster& place(Transform transform) {
        EXPECT_EQ(GDALSetGeoTransform(dataset_.get(), transform.data()), CE_None);
        return *this;
    }

    /// Writes a band from the file's first row on, as numbers of `type`.
    template <class T>
    NewRaster& fill(std::vector<T> values, GDALDataType type, int number = 1) {
        write(band(number), values, type);
        return *this;
    }

    template <class T>
    static void write(GDALRasterBandH band, std::vector<T>& values, GDALDataType type) {
        const int width = GDALGetRasterBandXSize(band);
        const int height = GDALGetRasterBandYSize(band);
        ASSERT_EQ(values.size(), static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
        EXPECT_EQ(GDALRasterIO(band, GF_Write, 0, 0, width, height, values.data(), width, height, type, 0, 0),
                  CE_None);
    }

private:
    struct Close {
        void operator()(GDALDatasetH dataset) const { GDALClose(dataset); }
    };
    std::unique_ptr<void, Close> dataset_;
};

struct Rasters : ::testing::Test {
    /// The chart of the grid that was read last.
    [[nodiscard]] Anchor::StrongPtr<Sheaf::CartesianChart> chart() const {
        return bundle->slices().begin()->second.lock()->grids().begin()->second.lock()->findChart("");
    }

    /// Reads a file into a bundle and gives the representation that it became.
    Representation read(const std::string& path) {
        bundle = Anchor::makeStrong<Sheaf::Bundle>();
        report = reader.read(*bundle, path, options);
        const auto slice = bundle->slices().at(options.SliceTime).lock();
        grid = slice->grids().at(fs::path(path).stem().string()).lock();
        return grid->findHighestHomogenousVertexRefinement(0)->representations()(
            grid->findCartesianChart(""));
    }

    static Anchor::StrongPtr<Anchor::Cacheable> arrayOf(const Representation& representation,
                                                        const std::string& field) {
        const auto found = representation->findField(field.c_str());
        EXPECT_TRUE(found) << field;
        return found->getCreator(found->getFragmentIDs().front())->create(false);
    }

    template <class T>
    static std::vector<T> values(const Representation& representation, const std::string& field) {
        const auto array = Anchor::dynamicCast<Sheaf::MemArray<3, T>>(arrayOf(representation, field));
        if (!array) {
            ADD_FAILURE() << field << " is not of the type that is expected";
            return {};
        }
        EXPECT_TRUE(representation->findField(field.c_str())->getElementType() == typeid(T));
        return array->base_vector();
    }

    static const Sheaf::UniformCartesianArray& lattice(const Representation& representation) {
        const auto array =
            Anchor::dynamicCast<Sheaf::UniformCartesianArray>(arrayOf(representation, "Positions"));
        EXPECT_TRUE(array);
        return *array;
    }

    /// The message of the error with which something ends.
    template <class Error = Anchor::FormatError>
    static std::string errorOf(const std::function<void()>& action) {
        try {
            action();
        } catch (const Error& error) {
            return error.what();
        }
        ADD_FAILURE() << "there was no such error";
        return {};
    }

    Support::TemporaryFolder folder;
    Tidewatch::RasterReader reader{Support::reading()};
    ConvLib::ReadOptions options;
    Anchor::StrongPtr<Sheaf::Bundle> bundle;
    Anchor::StrongPtr<Sheaf::Grid> grid;
    Anchor::StrongPtr<ConvLib::InputReport> report;
};

/// A file of 3 by 2 bytes, north up: 1 2 3 above 4 5 6.
std::string makeSmall(const std::string& path) {
    NewRaster(path, 3, 2, 1, GDT_Byte).place(northUp).fill<unsigned char>({1, 2, 3, 4, 5, 6}, GDT_Byte);
    return path;
}

TEST_F(Rasters, NorthUpFileHasItsRowsTurned) {
    const auto representation = read(makeSmall(folder / "dem.tif"));
    EXPECT_THAT(values<unsigned char>(representation, "Band1"), ElementsAre(4, 5, 6, 1, 2, 3));
    const auto& positions = lattice(representation);
    EXPECT_EQ(positions.origin(), (Geom::PhysicalSpace::point{105, 192.5, 0}));
    EXPECT_EQ(positions.spacing(), (Geom::PhysicalSpace::vector{10, 5, 1}));
    EXPECT_EQ(positions.extents(), (Sheaf::Extents{3, 2, 1}));
}

TEST_F(Rasters, SouthUpFileKeepsItsRows) {
    NewRaster(folder / "dem.tif", 3, 2, 1, GDT_Byte)
        .place({100, 10, 0, 200, 0, 5})
        .fill<unsigned char>({1, 2, 3, 4, 5, 6}, GDT_Byte);
    const auto representation = read(folder / "dem.tif");
    EXPECT_THAT(values<unsigned char>(representation, "Band1"), ElementsAre(1, 2, 3, 4, 5, 6));
    EXPECT_EQ(lattice(representation).origin(), (Geom::PhysicalSpace::point{105, 202.5, 0}));
    EXPECT_EQ(lattice(representation).spacing(), (Geom::PhysicalSpace::vector{10, 5, 1}));
}

TEST_F(Rasters, ColumnsThatRunWestAreTurned) {
    NewRaster(folder / "dem.tif", 3, 2, 1, GDT_Byte)
        .place({100, -10, 0, 200, 0, -5})
        .fill<unsigned char>({1, 2, 3, 4, 5, 6}, GDT_Byte);
    const auto representation = read(folder / "dem.tif");
    EXPECT_THAT(values<unsigned char>(representation, "Band1"), ElementsAre(6, 5, 4, 3, 2, 1));
    EXPECT_EQ(lattice(representation).origin(), (Geom::PhysicalSpace::point{75, 192.5, 0}));
}

TEST_F(Rasters, FileWithoutGeoreferenceCountsInPixelsWithItsFirstRowOnTop) {
    NewRaster(folder / "photo.tif", 2, 3, 1, GDT_Byte).fill<unsigned char>({1, 2, 3, 4, 5, 6}, GDT_Byte);
    const auto representation = read(folder / "photo.tif");
    EXPECT_THAT(values<unsigned char>(representation, "Band1"), ElementsAre(5, 6, 3, 4, 1, 2));
    EXPECT_EQ(lattice(representation).origin(), (Geom::PhysicalSpace::point{0.5, 0.5, 0}));
    EXPECT_EQ(lattice(representation).spacing(), (Geom::PhysicalSpace::vector{1, 1, 1}));
}

TEST_F(Rasters, FileBecomesOneGridOfOneFragmentAtTheSlicesTime) {
    options.SliceTime = 7.5;
    const auto representation = read(makeSmall(folder / "dem.1.tif"));
    EXPECT_EQ(grid->name(), "dem.1");
    EXPECT_EQ(grid->origin(), folder / "dem.1.tif");
    EXPECT_THAT(grid->chartNames(), ElementsAre(Sheaf::Grid::standardChart));
    std::vector<std::string> fields;
    representation->forEachField([&](const Sheaf::FieldID& id, const Sheaf::Field& field) {
        fields.push_back(id.name());
        EXPECT_EQ(field.getFragmentIDs().size(), 1U);
        EXPECT_EQ(field.getFragmentIDs().front()->name(), "000000");
        return true;
    });
    EXPECT_THAT(fields, ElementsAre("Band1", "CellType", "Positions"));
    EXPECT_EQ(report->file(), folder / "dem.1.tif");
    EXPECT_EQ(report->kind(), "raster (GTiff), 1 band");
    EXPECT_EQ(report->grid(), "dem.1");
    EXPECT_EQ(report->coordinateStep(), std::nullopt);
    EXPECT_THAT(report->notCarried(), IsEmpty());
}

TEST_F(Rasters, EveryBandTypeBecomesElementsThatHoldIt) {
    const auto check = [&]<class T>(const char* name, GDALDataType type, std::vector<T> written,
                                    auto element) {
        using Element = decltype(element);
        const std::string path = folder / (std::string(name) + ".tif");
        NewRaster(path, 3, 1, 1, type).fill(written, type);
        std::vector<Element> expected;
        for (const T value : written)
            expected.push_back(static_cast<Element>(value));
        EXPECT_EQ(values<Element>(read(path), "Band1"), expected) << name;
    };
    using std::numeric_limits;
    check.operator()<unsigned char>("byte", GDT_Byte, {0, 128, 255}, static_cast<unsigned char>(0));
    check.operator()<unsigned short>("u16", GDT_UInt16, {0, 32768, 65535}, static_cast<unsigned short>(0));
    check.operator()<short>("i16", GDT_Int16, {-32768, -1, 32767}, 0);
    check.operator()<unsigned int>("u32", GDT_UInt32, {0, 1, 4294967295U}, 0U);
    check.operator()<int>("i32", GDT_Int32, {numeric_limits<int>::min(), 0, numeric_limits<int>::max()}, 0);
    check.operator()<unsigned long long>("u64", GDT_UInt64, {0, 1, numeric_limits<unsigned long long>::max()},
                                         0ULL);
    check.operator()<long long>(
        "i64", GDT_Int64, {numeric_limits<long long>::min(), -1, numeric_limits<long long>::max()}, 0LL);
    check.operator()<float>("f32", GDT_Float32, {-1.5F, 0.1F, numeric_limits<float>::infinity()}, 0.0F);
    check.operator()<double>("f64", GDT_Float64, {-1.5, 0.1, numeric_limits<double>::denorm_min()}, 0.0);
}

TEST_F(Rasters, SignedBytesAreWidened) {
#if GDAL_VERSION_NUM >= GDAL_COMPUTE_VERSION(3, 7, 0)
    NewRaster(folder / "i8.tif", 4, 1, 1, GDT_Int8).fill<signed char>({-128, -1, 0, 127}, GDT_Int8);
#else
    NewRaster(folder / "i8.tif", 4, 1, 1, GDT_Byte, {"PIXELTYPE=SIGNEDBYTE"})
        .fill<signed char>({-128, -1, 0, 127}, GDT_Byte);
#endif
    EXPECT_THAT(values<int>(read(folder / "i8.tif"), "Band1"), ElementsAre(-128, -1, 0, 127));

    const GDALDatasetH file = GDALOpen((folder / "i8.tif").c_str(), GA_Update);
    GDALSetRasterNoDataValue(GDALGetRasterBand(file, 1), -1);
    GDALClose(file);
    EXPECT_THAT(values<unsigned char>(read(folder / "i8.tif"), "CellType"), ElementsAre(1, 0, 1, 1));
}

TEST_F(Rasters, ComplexNumbersAreRefused) {
    for (const GDALDataType type : {GDT_CInt16, GDT_CInt32, GDT_CFloat32, GDT_CFloat64}) {
        const std::string path = folder / (std::string(GDALGetDataTypeName(type)) + ".tif");
        { const NewRaster made(path, 2, 2, 1, type); }
        EXPECT_TRUE(reader.recognises(path, {}));
        EXPECT_THAT(errorOf([&] { read(path); }),
                    AllOf(HasSubstr(path), HasSubstr("band 1"), HasSubstr(GDALGetDataTypeName(type))));
        EXPECT_THAT(bundle->slices(), IsEmpty());
    }
}

TEST_F(Rasters, EveryBandIsAFieldOfItsOwn) {
    NewRaster file(folder / "rgb.tif", 2, 1, 3, GDT_Byte);
    for (int band = 1; band <= 3; ++band)
        file.fill<unsigned char>({static_cast<unsigned char>(band), 9}, GDT_Byte, band);
    GDALFlushCache(file.dataset());
    const auto representation = read(folder / "rgb.tif");
    EXPECT_THAT(values<unsigned char>(representation, "Band1"), ElementsAre(1, 9));
    EXPECT_THAT(values<unsigned char>(representation, "Band2"), ElementsAre(2, 9));
    EXPECT_THAT(values<unsigned char>(representation, "Band3"), ElementsAre(3, 9));
    EXPECT_EQ(report->kind(), "raster (GTiff), 3 bands");
}

TEST_F(Rasters, ThousandsOfBandsAreReadAndMoreAreRefused) {
    { const NewRaster made(folder / "a.tif", 1, 1, 4096, GDT_Byte, {"INTERLEAVE=BAND"}); }
    EXPECT_THAT(values<unsigned char>(read(folder / "a.tif"), "Band4096"), ElementsAre(0));
    { const NewRaster made(folder / "b.tif", 1, 1, 4097, GDT_Byte, {"INTERLEAVE=BAND"}); }
    EXPECT_EQ(errorOf([&] { read(folder / "b.tif"); }),
              (folder / "b.tif") + ": has 4097 bands, and no more than 4096 are read");
}

TEST_F(Rasters, WithoutNoDataEveryCellIsValid) {
    EXPECT_THAT(values<unsigned char>(read(makeSmall(folder / "a.tif")), "CellType"),
                ElementsAre(1, 1, 1, 1, 1, 1));
}

TEST_F(Rasters, NoDataIsCellTypeZeroAndTurnedLikeTheValues) {
    {
        NewRaster file(folder / "a.tif", 2, 2, 1, GDT_Float32);
        file.place(northUp).fill<float>({-9999, 2, 3, 4}, GDT_Float32);
        GDALSetRasterNoDataValue(file.band(), -9999);
    }
    const auto representation = read(folder / "a.tif");
    EXPECT_THAT(values<float>(representation, "Band1"), ElementsAre(3, 4, -9999, 2));
    EXPECT_THAT(values<unsigned char>(representation, "CellType"), ElementsAre(1, 1, 0, 1));
}

TEST_F(Rasters, NotANumberAsNoDataIsRecognised) {
    {
        NewRaster file(folder / "a.tif", 2, 1, 1, GDT_Float64);
        file.fill<double>({std::nan(""), 2}, GDT_Float64);
        GDALSetRasterNoDataValue(file.band(), std::nan(""));
    }
    EXPECT_THAT(values<unsigned char>(read(folder / "a.tif"), "CellType"), ElementsAre(0, 1));
}

TEST_F(Rasters, CellIsValidWhereEveryBandHasAValueAndDifferencesAreReported) {
    {
        NewRaster file(folder / "a.tif", 4, 1, 2, GDT_Byte);
        file.fill<unsigned char>({0, 1, 0, 1}, GDT_Byte, 1).fill<unsigned char>({0, 0, 1, 1}, GDT_Byte, 2);
        GDALSetRasterNoDataValue(file.band(1), 0);
    }
    const auto representation = read(folder / "a.tif");
    EXPECT_THAT(report->lostByCellTypes(), IsEmpty());
    EXPECT_THAT(values<unsigned char>(representation, "CellType"), ElementsAre(0, 0, 0, 1));
    EXPECT_THAT(report->lostByCellTypes(), ElementsAre("values of bands where another band has no-data"));
    EXPECT_THAT(report->notCarried(), IsEmpty());
}

TEST_F(Rasters, BandsThatLackTheSamePixelsAreNotReported) {
    {
        NewRaster file(folder / "a.tif", 2, 1, 2, GDT_Byte);
        file.fill<unsigned char>({0, 1}, GDT_Byte, 1).fill<unsigned char>({0, 2}, GDT_Byte, 2);
        GDALSetRasterNoDataValue(file.band(1), 0);
    }
    EXPECT_THAT(values<unsigned char>(read(folder / "a.tif"), "CellType"), ElementsAre(0, 1));
    EXPECT_THAT(report->lostByCellTypes(), IsEmpty());
}

TEST_F(Rasters, MaskInsideTheFileCounts) {
    CPLSetThreadLocalConfigOption("GDAL_TIFF_INTERNAL_MASK", "YES");
    {
        NewRaster file(folder / "a.tif", 3, 1, 1, GDT_Byte);
        file.fill<unsigned char>({1, 2, 3}, GDT_Byte);
        ASSERT_EQ(GDALCreateDatasetMaskBand(file.dataset(), GMF_PER_DATASET), CE_None);
        Bytes mask{255, 0, 255};
        NewRaster::write(GDALGetMaskBand(file.band()), mask, GDT_Byte);
    }
    CPLSetThreadLocalConfigOption("GDAL_TIFF_INTERNAL_MASK", nullptr);
    EXPECT_THAT(values<unsigned char>(read(folder / "a.tif"), "CellType"), ElementsAre(1, 0, 1));
}

void makeMaskedBeside(const std::string& path) {
    CPLSetThreadLocalConfigOption("GDAL_TIFF_INTERNAL_MASK", "NO");
    {
        NewRaster file(path, 3, 1, 1, GDT_Byte);
        file.fill<unsigned char>({1, 2, 3}, GDT_Byte);
        ASSERT_EQ(GDALCreateDatasetMaskBand(file.dataset(), GMF_PER_DATASET), CE_None);
        Bytes mask{0, 255, 0};
        NewRaster::write(GDALGetMaskBand(file.band()), mask, GDT_Byte);
    }
    CPLSetThreadLocalConfigOption("GDAL_TIFF_INTERNAL_MASK", nullptr);
    ASSERT_TRUE(fs::exists(path + ".msk"));
}

TEST_F(Rasters, MaskBesideTheFileCounts) {
    makeMaskedBeside(folder / "a.tif");
    EXPECT_THAT(values<unsigned char>(read(folder / "a.tif"), "CellType"), ElementsAre(0, 1, 0));
}

TEST_F(Rasters, AlphaBandIsAMask) {
    {
        NewRaster file(folder / "a.tif", 3, 1, 4, GDT_Byte, {"PHOTOMETRIC=RGB", "ALPHA=YES"});
        for (int band = 1; band <= 3; ++band)
            file.fill<unsigned char>({1, 2, 3}, GDT_Byte, band);
        file.fill<unsigned char>({0, 1, 255}, GDT_Byte, 4);
    }
    EXPECT_THAT(values<unsigned char>(read(folder / "a.tif"), "CellType"), ElementsAre(0, 1, 1));
    EXPECT_THAT(report->notCarried(), IsEmpty());
}

TEST_F(Rasters, WhatIsNotCarriedIsListed) {
    {
        NewRaster file(folder / "a.tif", 2, 2, 2, GDT_Byte);
        file.place(northUp);
        const OGRSpatialReferenceH system = OSRNewSpatialReference(nullptr);
        ASSERT_EQ(OSRImportFromEPSG(system, 32633), OGRERR_NONE);
        ASSERT_EQ(GDALSetSpatialRef(file.dataset(), system), CE_None);
        OSRDestroySpatialReference(system);
        GDALSetDescription(file.band(1), "max");
        GDALSetRasterScale(file.band(2), 0.5);
        GDALSetRasterUnitType(file.band(2), "m");
    }
    read(folder / "a.tif");
    EXPECT_THAT(report->notCarried(),
                ElementsAre("scale and offset of values", "unit of values", "names of bands"));
}

TEST_F(Rasters, ReferenceSystemOfAnyKindIsThatOfTheChart) {
    for (
        const std::string text :
        {"EPSG:32633", "EPSG:4326", "EPSG:7415", "EPSG:4979",
         "PROJCS[\"mine\",GEOGCS[\"mine\",DATUM[\"mine\",SPHEROID[\"mine\",6378000,298]],PRIMEM[\"Greenwich\",0],"
         "UNIT[\"degree\",0.0174532925199433]],PROJECTION[\"Transverse_Mercator\"],PARAMETER["
         "\"latitude_of_origin\",1],PARAMETER[\"central_meridian\",2],PARAMETER[\"scale_factor\",0.9],PARAMETER["
         "\"false_easting\",3],PARAMETER[\"false_northing\",4],UNIT[\"metre\",1]]"}) {
        const OGRSpatialReferenceH system = OSRNewSpatialReference(nullptr);
        ASSERT_EQ(OSRSetFromUserInput(system, text.c_str()), OGRERR_NONE);
        {
            NewRaster file(folder / "a.tif", 2, 2, 1, GDT_Byte);
            file.place(northUp);
            ASSERT_EQ(GDALSetSpatialRef(file.dataset(), system), CE_None);
        }
        read(folder / "a.tif");
        const std::string found = chart()->referenceSystem();
        const OGRSpatialReferenceH back = OSRNewSpatialReference(found.c_str());
        ASSERT_NE(back, nullptr) << text;
        EXPECT_TRUE(OSRIsSame(back, system)) << found;
        EXPECT_THAT(report->notCarried(), Each(Not(HasSubstr("system"))));
        OSRDestroySpatialReference(back);
        OSRDestroySpatialReference(system);
    }
    NewRaster(folder / "none.tif", 2, 2, 1, GDT_Byte).place(northUp);
    read(folder / "none.tif");
    EXPECT_EQ(chart()->referenceSystem(), "");
}

TEST_F(Rasters, ColourTableAndControlPointsAreListed) {
    {
        NewRaster file(folder / "a.tif", 2, 2, 1, GDT_Byte, {"PHOTOMETRIC=PALETTE"});
        const GDALColorTableH table = GDALCreateColorTable(GPI_RGB);
        const GDALColorEntry entry{1, 2, 3, 255};
        GDALSetColorEntry(table, 0, &entry);
        GDALSetRasterColorTable(file.band(), table);
        GDALDestroyColorTable(table);
        std::array<GDAL_GCP, 3> points{};
        GDALInitGCPs(static_cast<int>(points.size()), points.data());
        for (std::size_t i = 0; i < points.size(); ++i) {
            points[i].dfGCPPixel = static_cast<double>(i);
            points[i].dfGCPX = static_cast<double>(i * i);
        }
        ASSERT_EQ(GDALSetGCPs(file.dataset(), static_cast<int>(points.size()), points.data(), ""), CE_None);
        GDALDeinitGCPs(static_cast<int>(points.size()), points.data());
    }
    const auto representation = read(folder / "a.tif");
    EXPECT_THAT(report->notCarried(), ElementsAre("ground control points", "colour table"));
    EXPECT_EQ(lattice(representation).origin(), (Geom::PhysicalSpace::point{0.5, 0.5, 0}));
}

TEST_F(Rasters, RotatedRasterIsRefused) {
    NewRaster(folder / "a.tif", 100, 100, 1, GDT_Byte).place({100, 10, 0.01, 200, 0, -10});
    EXPECT_THAT(errorOf([&] { read(folder / "a.tif"); }), (folder / "a.tif") + ": is a rotated raster");
    NewRaster(folder / "b.tif", 100, 100, 1, GDT_Byte).place({100, 0, 10, 200, 10, 0});
    EXPECT_THAT(errorOf([&] { read(folder / "b.tif"); }), (folder / "b.tif") + ": is a rotated raster");
    EXPECT_THAT(bundle->slices(), IsEmpty());
}

TEST_F(Rasters, RoundingErrorsAreNoRotation) {
    const Transform nearly{100, 10, 1e-13, 200, -1e-13, -10};
    const auto placing = Tidewatch::Raster::Placing::make(nearly, 10000, 10000, "x");
    EXPECT_EQ(placing.corner, (Geom::PhysicalSpace::point{105, 200 - 99995, 0}));
}

TEST_F(Rasters, TransformThatIsNoNumberOrHasNoSizeIsRefused) {
    const double nan = std::nan("");
    const double infinity = std::numeric_limits<double>::infinity();
    for (const Transform& transform :
         {Transform{0, 0, 0, 0, 0, 0}, Transform{0, 1, 0, 0, 0, 0}, Transform{0, 0, 0, 0, 0, 1},
          Transform{nan, 1, 0, 0, 0, 1}, Transform{0, 1, 0, infinity, 0, 1}, Transform{0, 1, nan, 0, 0, 1},
          Transform{0, infinity, 0, 0, 0, 1}}) {
        EXPECT_THAT(errorOf([&] { (void)Tidewatch::Raster::Placing::make(transform, 2, 2, "x"); }),
                    HasSubstr("x: its georeference gives its pixels no size"));
    }
}

TEST_F(Rasters, TransformThatLeadsBeyondAllNumbersIsRefused) {
    for (const Transform& transform :
         {Transform{0, -1e308, 0, 0, 0, 1}, Transform{0, 1, 0, -1e308, 0, -1e308}}) {
        EXPECT_EQ(errorOf([&] { (void)Tidewatch::Raster::Placing::make(transform, 4, 4, "x"); }),
                  "x: its georeference places its pixels beyond the range of numbers");
    }
}

TEST_F(Rasters, NameThatCannotBeAPathComponentIsRefused) {
    const std::string path = folder / "a\nb.tif";
    makeSmall(path);
    EXPECT_THAT(errorOf([&] { read(path); }),
                AllOf(HasSubstr("a\\x0ab"), HasSubstr("holds a control character")));
}

TEST_F(Rasters, NameBeyondAsciiIsKept) {
    EXPECT_THAT(values<unsigned char>(read(makeSmall(folder / "Höhe 高さ.tif")), "Band1"),
                ElementsAre(4, 5, 6, 1, 2, 3));
}

TEST_F(Rasters, SecondGridOfANameIsRefusedAndLeavesTheFirst) {
    fs::create_directory(folder.path() / "other");
    const auto representation = read(makeSmall(folder / "dem.tif"));
    makeSmall(folder / "other/dem.tif");
    EXPECT_THAT(errorOf<Anchor::ModelError>([&] { reader.read(*bundle, folder / "other/dem.tif", options); }),
                AllOf(HasSubstr(folder / "dem.tif"), HasSubstr(folder / "other/dem.tif")));
    EXPECT_THAT(values<unsigned char>(representation, "Band1"), ElementsAre(4, 5, 6, 1, 2, 3));
}

TEST_F(Rasters, ArrayIsMadeAgainAfterTheCacheHasDroppedIt) {
    const auto representation = read(makeSmall(folder / "dem.tif"));
    const auto field = representation->findField("Band1");
    const auto creator = field->getCreator(field->getFragmentIDs().front());
    EXPECT_FALSE(creator->available());
    EXPECT_EQ(creator->extents(), (Sheaf::Extents{3, 2, 1}));
    EXPECT_EQ(values<unsigned char>(representation, "Band1").size(), 6U);
    EXPECT_TRUE(creator->available());
    const auto first = creator->create(false);
    EXPECT_EQ(creator->create(false), first);
    EXPECT_NE(creator->create(true), first);
    EXPECT_THAT(values<unsigned char>(representation, "Band1"), ElementsAre(4, 5, 6, 1, 2, 3));
}

TEST_F(Rasters, ArrayBeyondTheHostsLimitIsRefusedWhenItIsMade) {
    options.MaximumArrayBytes = 47;
    {
        NewRaster file(folder / "a.tif", 3, 2, 1, GDT_Float64, {"BLOCKYSIZE=1"});
        file.fill<double>(std::vector<double>(6), GDT_Float64);
    }
    const auto representation = read(folder / "a.tif");
    EXPECT_THAT(errorOf<Anchor::LimitError>([&] { (void)arrayOf(representation, "Band1"); }),
                (folder / "a.tif") + ": band 1: needs 48 bytes of memory, and 47 are allowed");
    EXPECT_EQ(values<unsigned char>(representation, "CellType").size(), 6U);
}

TEST_F(Rasters, BlockBeyondTheHostsLimitIsRefusedWhenAnArrayIsMade) {
    options.MaximumArrayBytes = 1000;
    NewRaster(folder / "a.tif", 3, 2, 1, GDT_Byte, {"TILED=YES", "BLOCKXSIZE=32", "BLOCKYSIZE=32"})
        .fill<unsigned char>(Bytes(6), GDT_Byte);
    const auto representation = read(folder / "a.tif");
    EXPECT_THAT(errorOf<Anchor::LimitError>([&] { (void)arrayOf(representation, "Band1"); }),
                (folder / "a.tif") +
                    ": band 1: needs 1024 bytes of memory for a block of the file, and 1000 are allowed");
}

TEST_F(Rasters, BlocksOutOfProportionToTheRasterAreRefused) {
    {
        const NewRaster made(
            folder / "a.tif", 3, 2, 3, GDT_Float64,
            {"SPARSE_OK=TRUE", "TILED=YES", "INTERLEAVE=PIXEL", "BLOCKXSIZE=4096", "BLOCKYSIZE=4096"});
    }
    EXPECT_THAT(errorOf([&] { read(folder / "a.tif"); }),
                (folder / "a.tif") + ": has blocks of 402653184 bytes for 144 bytes of pixels");
}

TEST_F(Rasters, SmallFileThatClaimsMoreThanAllMemoryIsRefusedWhenAnArrayIsMade) {
    // 2^30 by 2^30 pixels, none of them in the file.
    {
        const NewRaster made(
            folder / "a.tif", 1 << 30, 1 << 30, 1, GDT_Float64,
            {"SPARSE_OK=TRUE", "BIGTIFF=YES", "TILED=YES", "BLOCKXSIZE=1048576", "BLOCKYSIZE=1048576"});
    }
    EXPECT_LT(fs::file_size(folder / "a.tif"), 100'000'000U);
    const auto representation = read(folder / "a.tif");
    EXPECT_THAT(errorOf<Anchor::LimitError>([&] { (void)arrayOf(representation, "Band1"); }),
                HasSubstr("band 1: needs 9223372036854775808 bytes of memory"));
    options.MaximumArrayBytes = std::numeric_limits<std::uint64_t>::max();
    const auto unlimited = read(folder / "a.tif");
    EXPECT_THAT(errorOf<Anchor::LimitError>([&] { (void)arrayOf(unlimited, "Band1"); }),
                HasSubstr("band 1: there is not enough memory for its 9223372036854775808 bytes"));
}

TEST_F(Rasters, PlainFileThatStatesMoreThanItHoldsIsRefusedBeforeAnythingIsAllocated) {
    Support::writeBytes(folder / "a.pgm", "P5\n2 2000000000\n255\nabc");
    EXPECT_EQ(errorOf([&] { read(folder / "a.pgm"); }),
              (folder / "a.pgm") + ": ends too early: it has 23 bytes, and what its header states takes "
                                   "4000000020 at least");
    Support::writeBytes(folder / "b.hdr", "NROWS 3\nNCOLS 8\nNBANDS 1\nNBITS 1\nBYTEORDER I\nLAYOUT BIL\n");
    // Releases of GDAL differ in whether they take eight pixels from a byte.
    Support::writeBytes(folder / "b.bil", "ab");
    EXPECT_THAT(errorOf([&] { read(folder / "b.bil"); }),
                AnyOf(HasSubstr("takes 3 at least"), HasSubstr("takes 24 at least")));
}

TEST_F(Rasters, LargeRasterIsReadInPartsWhichAreTicked) {
    constexpr int width = 2500;
    constexpr int height = 4100;
    std::vector<unsigned short> numbers(std::size_t{width} * height);
    for (std::size_t i = 0; i < numbers.size(); ++i)
        numbers[i] = static_cast<unsigned short>(i * 2654435761U >> 16U);
    {
        NewRaster file(folder / "a.tif", width, height, 1, GDT_UInt16, {"TILED=YES", "COMPRESS=DEFLATE"});
        file.fill(numbers, GDT_UInt16);
        GDALSetRasterNoDataValue(file.band(), 7);
    }
    std::vector<double> shares;
    options.Tick = [&](const std::string& file, double share) {
        EXPECT_EQ(file, folder / "a.tif");
        shares.push_back(share);
    };
    const auto representation = read(folder / "a.tif");
    shares.clear(); // a process that takes its time is waited for
    const auto turned = values<unsigned short>(representation, "Band1");
    EXPECT_GE(shares.size(), 4U);
    EXPECT_TRUE(std::is_sorted(shares.begin(), shares.end()));
    EXPECT_EQ(shares.front(), 0);
    EXPECT_EQ(shares.back(), 1);
    const auto types = values<unsigned char>(representation, "CellType");
    ASSERT_EQ(turned.size(), numbers.size());
    std::size_t wrong = 0;
    for (std::size_t row = 0; row < height; ++row) {
        for (std::size_t column = 0; column < width; ++column) {
            const unsigned short number = numbers[(height - 1 - row) * width + column];
            const std::size_t place = row * width + column;
            wrong += turned[place] != number || types[place] != (number == 7 ? 0 : 1) ? 1U : 0U;
        }
    }
    EXPECT_EQ(wrong, 0U);
}

TEST_F(Rasters, LargeRasterThatComesInManyPiecesIsTurnedRightly) {
    constexpr int width = 1700;
    constexpr int height = 1300;
    std::vector<double> pixels(std::size_t{width} * height);
    std::iota(pixels.begin(), pixels.end(), -1000.0);
    const auto pixel = [&](int column, int row) {
        return pixels[std::size_t(row) * width + std::size_t(column)];
    };
    // In rows, in tiles, and in tiles of which a row is larger than what is passed on at once.
    for (const char* const side : {"", "128", "1024"}) {
        for (const bool isTurned : {false, true}) {
            const std::string path = folder / "large.tif";
            const std::string columns = std::string("BLOCKXSIZE=") + side;
            const std::string rows = std::string("BLOCKYSIZE=") + side;
            std::vector<const char*> list;
            if (*side != 0)
                list = {"TILED=YES", columns.c_str(), rows.c_str()};
            NewRaster(path, width, height, 1, GDT_Float64, list)
                .place(isTurned ? Transform{100, -1, 0, 200, 0, 1} : Transform{100, 1, 0, 200, 0, -1})
                .fill(pixels, GDT_Float64);
            const auto representation = read(path);
            const auto got = values<double>(representation, "Band1");
            ASSERT_EQ(got.size(), pixels.size());
            std::size_t wrong = 0;
            for (int y = 0; y < height; ++y) {
                for (int x = 0; x < width; ++x) {
                    const double expected = isTurned ? pixel(width - 1 - x, y) : pixel(x, height - 1 - y);
                    wrong += got[std::size_t(y) * width + std::size_t(x)] != expected ? 1U : 0U;
                }
            }
            EXPECT_EQ(wrong, 0U) << side << (isTurned ? " turned" : "");
            const auto valid = values<unsigned char>(representation, "CellType");
            EXPECT_EQ(std::count(valid.begin(), valid.end(), 1), std::int64_t{width} * height);
        }
    }
}

TEST(Untouched, RunsOfTheFillingByteAreFoundWhereverTheyAre) {
    using Tidewatch::Raster::Untouched;
    for (const std::size_t size : {1U, 7U, 8U, 9U, 4095U, 4096U, 4100U, 8200U}) {
        std::vector<std::byte> bytes(size, std::byte{0xa4});
        EXPECT_FALSE(Untouched::hasRun(bytes)) << size;
        for (std::size_t begin = 0; begin + 7 <= size; ++begin) {
            // Around the edges of blocks.
            if (begin > 20 && begin % 4096 > 20 && begin % 4096 < 4076)
                continue;
            const auto run = bytes.begin() + static_cast<std::ptrdiff_t>(begin);
            std::fill_n(run, 7, std::byte{0xa5});
            EXPECT_FALSE(Untouched::hasRun(bytes)) << size << " from " << begin;
            if (begin + 8 <= size) {
                run[7] = std::byte{0xa5};
                EXPECT_TRUE(Untouched::hasRun(bytes)) << size << " from " << begin;
                run[7] = std::byte{0xa4};
            }
            std::fill_n(run, 7, std::byte{0xa4});
        }
    }
}

TEST_F(Rasters, ExceptionOfTheTickPassesThrough) {
    struct Stop {};
    options.Tick = [](const std::string&, double) { throw Stop(); };
    const auto representation = read(makeSmall(folder / "dem.tif"));
    EXPECT_THROW((void)arrayOf(representation, "Band1"), Stop);
    EXPECT_THROW((void)arrayOf(representation, "CellType"), Stop);
}

TEST_F(Rasters, SeveralThreadsReadOneFileAtOnce) {
    constexpr int bands = 8;
    {
        NewRaster file(folder / "a.tif", 300, 300, bands, GDT_Int32, {"COMPRESS=DEFLATE"});
        for (int band = 1; band <= bands; ++band)
            file.fill(std::vector<int>(90000, band), GDT_Int32, band);
    }
    const auto representation = read(folder / "a.tif");
    std::vector<std::thread> threads;
    std::array<bool, bands> right{};
    for (int band = 1; band <= bands; ++band) {
        threads.emplace_back([&, band] {
            const std::string name = std::string("Band").append(std::to_string(band));
            const auto array = Anchor::dynamicCast<Sheaf::MemArray<3, int>>(arrayOf(representation, name));
            right[static_cast<std::size_t>(band - 1)] =
                array && array->base_vector() == std::vector<int>(90000, band);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_THAT(right, Each(true));
}

TEST_F(Rasters, FileThatHasChangedIsRefused) {
    const auto representation = read(makeSmall(folder / "dem.tif"));
    NewRaster(folder / "dem.tif", 3, 2, 1, GDT_Byte, {"COMPRESS=LZW"})
        .fill<unsigned char>(Bytes(6), GDT_Byte);
    EXPECT_THAT(errorOf<Anchor::FileError>([&] { (void)arrayOf(representation, "Band1"); }),
                (folder / "dem.tif") + ": has been changed since it was opened");
    fs::remove(folder / "dem.tif");
    EXPECT_THAT(errorOf<Anchor::FileError>([&] { (void)arrayOf(representation, "Band1"); }),
                HasSubstr(folder / "dem.tif"));
}

TEST_F(Rasters, OtherFormatsThatAreReadAreRecognised) {
    Support::writeBytes(folder / "grid.asc", "ncols 2\nnrows 2\nxllcorner 10\nyllcorner 20\ncellsize 2\n"
                                             "NODATA_value -1\n1 2\n-1 4\n");
    EXPECT_TRUE(reader.recognises(folder / "grid.asc", {}));
    const auto representation = read(folder / "grid.asc");
    EXPECT_EQ(report->kind(), "raster (AAIGrid), 1 band");
    EXPECT_THAT(values<int>(representation, "Band1"), ElementsAre(-1, 4, 1, 2));
    EXPECT_THAT(values<unsigned char>(representation, "CellType"), ElementsAre(0, 1, 1, 1));
    EXPECT_EQ(lattice(representation).origin(), (Geom::PhysicalSpace::point{11, 21, 0}));

    for (const char* driver : {"PNG", "JPEG", "GIF", "BMP", "PNM", "EHdr", "ENVI"}) {
        const GDALDriverH written = GDALGetDriverByName(driver);
        if (written == nullptr)
            continue;
        const std::string path =
            folder / (std::string("as") + driver + (*driver == 'P' && driver[2] == 'M' ? ".pgm" : ".bin"));
        makeSmall(folder / "small.tif");
        const GDALDatasetH small = GDALOpen((folder / "small.tif").c_str(), GA_ReadOnly);
        const GDALDatasetH copy =
            GDALCreateCopy(written, path.c_str(), small, FALSE, nullptr, nullptr, nullptr);
        ASSERT_NE(copy, nullptr) << driver;
        GDALClose(copy);
        GDALClose(small);
        EXPECT_TRUE(reader.recognises(path, {})) << driver;
        EXPECT_EQ(values<unsigned char>(read(path), "Band1").size(), 6U) << driver;
        EXPECT_EQ(report->kind(), std::string("raster (") + driver + "), 1 band");
    }
}

TEST_F(Rasters, FilesOfOtherReadersAreNotTakenOver) {
    Support::writeBytes(folder / "a.las", "LASF" + std::string(500, '\0'));
    Support::writeBytes(folder / "a.laz", "LASF" + std::string(500, '\0'));
    Support::writeBytes(folder / "a.h5", "\x89HDF\r\n\x1a\n" + std::string(500, '\0'));
    // An HDF5 file may begin later, at 512 bytes for example.
    Support::writeBytes(folder / "b.h5",
                        std::string(512, '\0') + "\x89HDF\r\n\x1a\n" + std::string(500, '\0'));
    Support::writeBytes(folder / "a.txt", "nothing in particular\n");
    Support::writeBytes(folder / "empty", "");
    for (const char* name : {"a.las", "a.laz", "a.h5", "b.h5", "a.txt", "empty"})
        EXPECT_FALSE(reader.recognises(folder / name, {})) << name;
    EXPECT_FALSE(reader.recognises(folder / "missing.tif", {}));
    EXPECT_FALSE(reader.recognises(folder.path().string(), {}));
    ASSERT_EQ(::mkfifo((folder / "pipe.tif").c_str(), 0600), 0);
    EXPECT_FALSE(reader.recognises(folder / "pipe.tif", {}));
}

TEST_F(Rasters, RealLasFilesAreNotTakenOver) {
    TIDEWATCH_NEED_SHARED(any, "autzen_trim.laz");
    for (const auto& entry : fs::directory_iterator(fs::path(any).parent_path())) {
        const std::string extension = entry.path().extension().string();
        EXPECT_EQ(reader.recognises(entry.path().string(), {}), extension == ".tif") << entry.path();
    }
}

std::string virtualRasterOf(const std::string& source) {
    return "<VRTDataset rasterXSize=\"3\" rasterYSize=\"2\"><VRTRasterBand dataType=\"Byte\" band=\"1\">"
           "<SimpleSource><SourceFilename relativeToVRT=\"0\">" +
           source + "</SourceFilename><SourceBand>1</SourceBand></SimpleSource></VRTRasterBand></VRTDataset>";
}

TEST_F(Rasters, FormatsThatLeadToOtherFilesAreRefusedWithTheirNameWhateverTheFileIsCalled) {
    makeSmall(folder / "secret.tif");
    Support::writeBytes(folder / "a.vrt", virtualRasterOf(folder / "secret.tif"));
    Support::writeBytes(folder / "b.tif", virtualRasterOf(folder / "secret.tif"));
    Support::writeBytes(folder / "c.xml", "<GDAL_WMS><Service name=\"TMS\"><ServerUrl>http://localhost:1/"
                                          "</ServerUrl></Service></GDAL_WMS>");
    for (const auto& [name, driver] :
         {std::pair{"a.vrt", "VRT"}, std::pair{"b.tif", "VRT"}, std::pair{"c.xml", "WMS"}}) {
        EXPECT_TRUE(reader.recognises(folder / name, {}));
        EXPECT_EQ(errorOf([&, file = folder / name] { read(file); }),
                  (folder / name) + ": is of GDAL's format " + driver +
                      ", whose files refer to other files, so it is not read");
        EXPECT_THAT(bundle->slices(), IsEmpty());
    }
}

TEST_F(Rasters, MaskBesideTheFileThatLeadsToOtherFilesIsRefused) {
    makeMaskedBeside(folder / "a.tif");
    fs::rename(folder.path() / "a.tif.msk", folder.path() / "real.tif");
    Support::writeBytes(folder / "a.tif.msk", virtualRasterOf(folder / "real.tif"));
    EXPECT_EQ(errorOf([&] { read(folder / "a.tif"); }),
              (folder / "a.tif") + ": its mask " + (folder / "a.tif.msk") + " is not a TIFF file");
}

TEST_F(Rasters, MaskBesideTheFileIsFoundWhateverTheCaseOfItsName) {
    makeMaskedBeside(folder / "a.tif");
    fs::rename(folder.path() / "a.tif.msk", folder.path() / "real.tif");
    for (const char* name : {"a.tif.MSK", "a.tif.Msk", "A.TIF.msk"}) {
        Support::writeBytes(folder / name, virtualRasterOf(folder / "real.tif"));
        EXPECT_EQ(errorOf([&] { read(folder / "a.tif"); }),
                  (folder / "a.tif") + ": its mask " + (folder / name) + " is not a TIFF file");
        fs::remove(folder / name);
    }
}

TEST_F(Rasters, CompanionsAreThoseThatAreKnownToHoldTheirOwnData) {
    for (const char* name : {"a.tif", "a.tfw", "a.TIFW", "a.wld", "a.hdr", "a.prj", "a.tif.aux.xml",
                             "a.tif.msk", "a.tifw", "a.aux", "a.rrd", "a.tif.ovr", "a.tif.vrt", "a.vrt",
                             "a.tab", "a_rpc.txt", "ab.tfw", "b.tfw", "a.longw5w"})
        Support::writeBytes(folder / name, "x");
    fs::create_directory(folder.path() / "a.jgw");
    EXPECT_THAT(Tidewatch::Raster::companionsOf(folder / "a.tif"),
                UnorderedElementsAre("a.tfw", "a.TIFW", "a.wld", "a.hdr", "a.prj", "a.tif.aux.xml",
                                     "a.tif.msk", "a.tifw"));
}

TEST_F(Rasters, OverviewThatRemarksNameIsNotOpened) {
    makeSmall(folder / "a.tif");
    // Who opens a pipe waits for ever.
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    Support::writeBytes(folder / "a.tif.aux.xml", "<PAMDataset><Metadata domain=\"OVERVIEWS\"><MDI "
                                                  "key=\"OVERVIEW_FILE\">" +
                                                      (folder / "pipe") + "</MDI></Metadata></PAMDataset>");
    const auto representation = read(folder / "a.tif");
    EXPECT_THAT(values<unsigned char>(representation, "Band1"), ElementsAre(4, 5, 6, 1, 2, 3));
    EXPECT_THAT(values<unsigned char>(representation, "CellType"), Each(1));
}

TEST_F(Rasters, WorldFileAndRemarksBesideTheFilePlaceIt) {
    NewRaster(folder / "a.tif", 3, 2, 1, GDT_Byte).fill<unsigned char>({1, 2, 3, 4, 5, 6}, GDT_Byte);
    Support::writeBytes(folder / "a.tfw", "10\n0\n0\n-5\n105\n197.5\n");
    EXPECT_EQ(lattice(read(folder / "a.tif")).origin(), (Geom::PhysicalSpace::point{105, 192.5, 0}));

    NewRaster(folder / "b.tif", 3, 2, 1, GDT_Byte).fill<unsigned char>({1, 2, 3, 4, 5, 6}, GDT_Byte);
    Support::writeBytes(
        folder / "b.tif.aux.xml",
        "<PAMDataset><GeoTransform>100, 10, 0, 200, 0, -5</GeoTransform>"
        "<PAMRasterBand band=\"1\"><NoDataValue>3</NoDataValue></PAMRasterBand></PAMDataset>");
    const auto representation = read(folder / "b.tif");
    EXPECT_EQ(lattice(representation).origin(), (Geom::PhysicalSpace::point{105, 192.5, 0}));
    EXPECT_THAT(values<unsigned char>(representation, "CellType"), ElementsAre(1, 1, 1, 1, 1, 0));
}

TEST_F(Rasters, ReadingLeavesNoFileBehind) {
    makeSmall(folder / "a.tif");
    makeMaskedBeside(folder / "b.tif");
    for (const char* name : {"a.tif", "b.tif"}) {
        const auto representation = read(folder / name);
        (void)arrayOf(representation, "Band1");
        (void)arrayOf(representation, "CellType");
    }
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder.path()))
        names.push_back(entry.path().filename().string());
    EXPECT_THAT(names, UnorderedElementsAre("a.tif", "b.tif", "b.tif.msk"));
}

TEST_F(Rasters, PathIsNeverTakenForOneOfGdalsOwnNames) {
    makeSmall(folder / "GTIFF_DIR:1:x.tif");
    EXPECT_THAT(values<unsigned char>(read(folder / "GTIFF_DIR:1:x.tif"), "Band1"),
                ElementsAre(4, 5, 6, 1, 2, 3));
}

TEST_F(Rasters, ListOfFormatsHoldsNoneThatIsKnownToLeadElsewhere) {
    for (const char* const* driver = Tidewatch::Raster::readableDrivers(); *driver != nullptr; ++driver) {
        for (const char* elsewhere : {"VRT", "DERIVED", "WMS", "WMTS", "WCS", "HTTP", "HFA", "netCDF", "HDF5",
                                      "BAG", "PostGISRaster", "GPKG", "MBTiles", "STACTA", "LOSLAS", "Zarr"})
            EXPECT_STRNE(*driver, elsewhere);
    }
}

/// Counts what GDAL says where nobody else listens.
void CPL_STDCALL countMessage(CPLErr, CPLErrorNum, const char*) {
    ++*static_cast<int*>(CPLGetErrorHandlerUserData());
}

TEST_F(Rasters, MessagesOfGdalGoIntoTheErrorAndNowhereElse) {
    makeSmall(folder / "a.tif");
    const std::string whole = Support::readBytes(folder / "a.tif");
    Support::writeBytes(folder / "a.tif", whole.substr(0, 100));
    int messages = 0;
    CPLPushErrorHandlerEx(&countMessage, &messages);
    EXPECT_THAT(errorOf([&] { read(folder / "a.tif"); }),
                AllOf(HasSubstr(folder / "a.tif"), HasSubstr("cannot be read: "),
                      ::testing::Not(HasSubstr("no reason"))));
    CPLPopErrorHandler();
    EXPECT_EQ(messages, 0);
}

/// Everything that can be asked of a file, as text; errors of ours are right answers, and give none.
std::string readAll(const Tidewatch::RasterReader& reader, const std::string& path) {
    if (!reader.recognises(path, {}))
        return {};
    std::string text;
    try {
        const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
        ConvLib::ReadOptions options;
        options.MaximumArrayBytes = 1'000'000;
        reader.read(*bundle, path, options);
        bundle->slices().begin()->second.lock()->grids().begin()->second.lock()->skeletons().iterate_all(
            [&](const Sheaf::FieldFragment& stop) {
                text += stop.id.name();
                const auto array = stop.data->create(false);
                if (const auto bytes = Anchor::dynamicCast<Sheaf::TypedArray<unsigned char>>(array))
                    text.append(bytes->base_vector().begin(), bytes->base_vector().end());
                if (const auto numbers = Anchor::dynamicCast<Sheaf::TypedArray<unsigned short>>(array)) {
                    for (const unsigned short number : numbers->base_vector())
                        text += std::to_string(number) + ' ';
                }
                return true;
            });
    } catch (const Anchor::Error& error) {
        EXPECT_THAT(error.what(), HasSubstr(path));
        return {};
    }
    return text;
}

TEST_F(Rasters, FileCutOffAnywhereIsReadOrRefused) {
    {
        NewRaster file(folder / "a.tif", 16, 16, 2, GDT_UInt16, {"COMPRESS=DEFLATE"});
        file.place(northUp);
        GDALSetRasterNoDataValue(file.band(), 1);
        std::vector<unsigned short> numbers(256);
        std::iota(numbers.begin(), numbers.end(), static_cast<unsigned short>(0));
        file.fill(numbers, GDT_UInt16, 1).fill(numbers, GDT_UInt16, 2);
    }
    const std::string whole = Support::readBytes(folder / "a.tif");
    const std::string right = readAll(reader, folder / "a.tif");
    EXPECT_THAT(right, HasSubstr("Band2"));
    for (std::size_t length = 0; length < whole.size(); ++length) {
        Support::writeBytes(folder / "a.tif", whole.substr(0, length));
        // Nothing that is missing is made up.
        EXPECT_THAT(readAll(reader, folder / "a.tif"), AnyOf("", right)) << length;
    }
}

TEST_F(Rasters, FileOfAnotherFormatThatEndsTooEarlyIsRefused) {
    constexpr int size = 64;
    for (const char* driver :
         {"AAIGrid", "EHdr", "ENVI", "PNG", "JPEG", "BMP", "PNM", "GIF", "JP2OpenJPEG"}) {
        const GDALDriverH written = GDALGetDriverByName(driver);
        if (written == nullptr)
            continue;
        {
            std::mt19937 random(1);
            Bytes noise(std::size_t{size} * size);
            for (unsigned char& pixel : noise)
                pixel = static_cast<unsigned char>(random());
            NewRaster(folder / "noise.tif", size, size, 1, GDT_Byte).fill(noise, GDT_Byte);
        }
        const std::string path =
            folder / (std::string(driver) + (driver == std::string("PNM") ? ".pgm" : ".x"));
        const GDALDatasetH source = GDALOpen((folder / "noise.tif").c_str(), GA_ReadOnly);
        const GDALDatasetH copy =
            GDALCreateCopy(written, path.c_str(), source, FALSE, nullptr, nullptr, nullptr);
        ASSERT_NE(copy, nullptr) << driver;
        GDALClose(copy);
        GDALClose(source);
        EXPECT_EQ(arrayOf(read(path), "Band1")->byteSize() / (size * size), *driver == 'A' ? 4U : 1U)
            << driver;
        fs::resize_file(path, fs::file_size(path) * 3 / 4);
        EXPECT_THAT(errorOf([&] { (void)arrayOf(read(path), "Band1"); }), HasSubstr(path)) << driver;
    }
}

/// Two bands of 4 by 3 16-bit numbers in a raw file: value 100 * band + 10 * row + column, all counted from
/// 1, at offset + (band - 1) * bandStep + (row - 1) * rowStep + (column - 1) * columnStep.
std::string rawFile(std::size_t offset, std::size_t bandStep, std::size_t rowStep, std::size_t columnStep) {
    std::string bytes;
    for (std::size_t band = 0; band < 2; ++band) {
        for (std::size_t row = 0; row < 3; ++row) {
            for (std::size_t column = 0; column < 4; ++column) {
                const std::size_t place = offset + band * bandStep + row * rowStep + column * columnStep;
                bytes.resize(std::max(bytes.size(), place + 2), '\xee');
                bytes[place] = static_cast<char>(100 * (band + 1) + 10 * (row + 1) + column + 1);
                bytes[place + 1] = 0;
            }
        }
    }
    return bytes;
}

struct RawRasters : Rasters {
    /// Expects that a file, of which the last byte is part of a pixel, is read whole, and refused when that
    /// byte is missing, or as many as lie before its first pixel.
    void expectEveryByteNeeded(const std::string& header, const std::string& bytes, std::size_t offset) {
        Support::writeBytes(folder / "a.hdr", header);
        const std::string path = folder / "a.bin";
        for (const char* const behind : {"", "x"}) {
            Support::writeBytes(path, bytes + behind);
            const auto representation = read(path);
            EXPECT_THAT(values<unsigned short>(representation, "Band1"),
                        ElementsAre(131, 132, 133, 134, 121, 122, 123, 124, 111, 112, 113, 114));
            EXPECT_THAT(values<unsigned short>(representation, "Band2"),
                        ElementsAre(231, 232, 233, 234, 221, 222, 223, 224, 211, 212, 213, 214));
        }
        for (const std::size_t missing : {std::size_t{1}, std::size_t{2}, offset, bytes.size() / 2}) {
            Support::writeBytes(path, bytes.substr(0, bytes.size() - missing));
            EXPECT_EQ(errorOf([&] { read(path); }), path + ": ends too early: it has " +
                                                        std::to_string(bytes.size() - missing) +
                                                        " bytes, and what its header states takes " +
                                                        std::to_string(bytes.size()) + " at least");
            EXPECT_THAT(bundle->slices(), IsEmpty());
        }
    }
};

TEST_F(RawRasters, EnviFileBehindAHeaderOffsetIsNeededToItsLastPixel) {
    const std::string header = "ENVI\nsamples = 4\nlines = 3\nbands = 2\nheader offset = 40\n"
                               "file type = ENVI Standard\ndata type = 12\nbyte order = 0\ninterleave = ";
    expectEveryByteNeeded(header + "bsq\n", rawFile(40, 24, 8, 2), 40);
    expectEveryByteNeeded(header + "bil\n", rawFile(40, 8, 16, 2), 40);
    expectEveryByteNeeded(header + "bip\n", rawFile(40, 2, 16, 4), 40);
}

TEST_F(RawRasters, EhdrFileBehindBytesToSkipIsNeededToItsLastPixel) {
    const std::string header = "NROWS 3\nNCOLS 4\nNBANDS 2\nNBITS 16\nBYTEORDER I\nSKIPBYTES 20\nLAYOUT ";
    expectEveryByteNeeded(header + "BIL\n", rawFile(20, 8, 16, 2), 20);
    expectEveryByteNeeded(header + "BIP\n", rawFile(20, 2, 16, 4), 20);
    expectEveryByteNeeded(header + "BSQ\n", rawFile(20, 24, 8, 2), 20);
}

TEST_F(Rasters, EhdrFileOfBytesIsNeededToItsLastPixel) {
    Support::writeBytes(folder / "a.hdr", "NROWS 3\nNCOLS 4\nNBANDS 1\nNBITS 8\nLAYOUT BIL\nSKIPBYTES 5\n");
    const std::string bytes = "headeABCDEFGHIJKL";
    Support::writeBytes(folder / "a.bin", bytes);
    EXPECT_EQ(values<unsigned char>(read(folder / "a.bin"), "Band1").back(), 'D');
    for (const std::size_t missing : {1U, 4U, 5U}) {
        Support::writeBytes(folder / "a.bin", bytes.substr(0, bytes.size() - missing));
        EXPECT_THAT(
            errorOf([&] { read(folder / "a.bin"); }),
            AllOf(HasSubstr((folder / "a.bin") + ": ends too early"), HasSubstr("takes 17 at least")));
    }
}

TEST_F(Rasters, FileOfAFormatWithAHeaderOfItsOwnIsNeededToItsLastByte) {
    struct Format {
        const char* driver;
        const char* name;
        GDALDataType type;
    };
    for (const Format& format : {Format{"PNM", "a.pgm", GDT_Byte},
                                 {"PNM", "b.pgm", GDT_UInt16},
                                 {"BT", "a.bt", GDT_Float32},
                                 {"BT", "b.bt", GDT_Int16},
                                 {"GSBG", "gsbg.grd", GDT_Float32},
                                 {"GS7BG", "gs7bg.grd", GDT_Float64}}) {
        const std::string path = folder / format.name;
        std::vector<double> numbers(15);
        std::iota(numbers.begin(), numbers.end(), 1);
        NewRaster(path, 5, 3, 1, format.type, {}, format.driver).fill(numbers, GDT_Float64);
        const std::string bytes = Support::readBytes(path);
        EXPECT_GT(arrayOf(read(path), "Band1")->byteSize(), 0U) << format.name;
        for (std::size_t missing = 1; missing < bytes.size(); ++missing) {
            Support::writeBytes(path, bytes.substr(0, bytes.size() - missing));
            EXPECT_THAT(errorOf([&] { (void)arrayOf(read(path), "Band1"); }), HasSubstr(path)) << missing;
        }
    }
}

TEST_F(Rasters, FileWithAnyByteChangedIsReadOrRefused) {
    {
        NewRaster file(folder / "a.tif", 8, 8, 1, GDT_Byte, {"COMPRESS=LZW"});
        file.place(northUp).fill<unsigned char>(Bytes(64, 5), GDT_Byte);
    }
    const std::string whole = Support::readBytes(folder / "a.tif");
    for (std::size_t place = 0; place < whole.size(); ++place) {
        for (const char flip : {'\x01', '\x80', '\xff'}) {
            std::string changed = whole;
            changed[place] = static_cast<char>(changed[place] ^ flip);
            Support::writeBytes(folder / "a.tif", changed);
            readAll(reader, folder / "a.tif");
        }
    }
}

TEST_F(Rasters, RegisteredReaderIsFoundByTheFilesContent) {
    ConvLib::registerReader(Anchor::makeStrong<Tidewatch::RasterReader>(Support::reading()));
    bundle = Anchor::makeStrong<Sheaf::Bundle>();
    fs::rename(makeSmall(folder / "dem.tif"), folder / "dem.data");
    report = ConvLib::readFile(*bundle, folder / "dem.data", {});
    EXPECT_EQ(report->grid(), "dem");
    ConvLib::unregisterReader("raster");
}

/// A raster as GDAL reads it, one band, from the first row on.
std::vector<double> readByGdal(const std::string& path, int number, const char* driver,
                               Transform* transform = nullptr) {
    GDALAllRegister();
    const char* const drivers[]{driver, nullptr};
    const char* const double64[]{"DATATYPE=Float64", nullptr};
    const GDALDatasetH dataset =
        GDALOpenEx(path.c_str(), GDAL_OF_RASTER, drivers,
                   std::string_view(driver) == "AAIGrid" ? double64 : nullptr, nullptr);
    if (dataset == nullptr)
        throw std::runtime_error("GDAL cannot read " + path);
    const int width = GDALGetRasterXSize(dataset);
    const int height = GDALGetRasterYSize(dataset);
    std::vector<double> values(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    EXPECT_EQ(GDALRasterIO(GDALGetRasterBand(dataset, number), GF_Read, 0, 0, width, height, values.data(),
                           width, height, GDT_Float64, 0, 0),
              CE_None);
    if (transform != nullptr)
        GDALGetGeoTransform(dataset, transform->data());
    GDALClose(dataset);
    return values;
}

struct ExportedRasters : Rasters {
    /// Exports a file as grids of the valid cells.
    void exportGrids(const std::string& path) {
        read(path);
        exporter.bundleptr = bundle;
        exporter.OutputPath = folder.path().string();
        exporter.CellTypeFilter = {};
        exporter.CellTypeFilter.add(1, 1);
        EXPECT_TRUE(exporter.Run());
    }

    void expectModelComesBack(const std::string& path) {
        exportGrids(path);
        Transform before{};
        Transform after{};
        const auto expected = readByGdal(path, 1, "GTiff", &before);
        const auto actual = readByGdal(folder / "Band1/000000.grd", 1, "AAIGrid", &after);
        ASSERT_EQ(actual.size(), expected.size());
        std::size_t noData = 0;
        for (std::size_t pixel = 0; pixel < expected.size(); ++pixel) {
            ASSERT_NEAR(actual[pixel], expected[pixel], 0.5e-6 + 1e-9);
            noData += expected[pixel] == -9999 ? 1U : 0U;
        }
        EXPECT_GT(noData, 0U);
        EXPECT_LT(noData, expected.size());
        for (std::size_t number = 0; number < 6; ++number)
            EXPECT_NEAR(after[number], before[number], 1e-3) << number;
    }

    void expectBandsComeBack(const std::string& path) {
        exportGrids(path);
        for (int band = 1; band <= 3; ++band) {
            const std::string name = std::string("Band").append(std::to_string(band));
            EXPECT_EQ(readByGdal(folder / (name + "/000000.grd"), 1, "AAIGrid"),
                      readByGdal(path, band, "GTiff"))
                << name;
        }
    }

    Support::ConsoleCapture console;
    ExportLib::ExportPointCloudToASCII exporter;
};

TEST_F(ExportedRasters, ElevationModelComesBackFromItsGridWithValuesNoDataAndPlace) {
    {
        NewRaster model(folder / "in.tif", 40, 30, 1, GDT_Float32);
        std::vector<float> values;
        for (int pixel = 0; pixel < 40 * 30; ++pixel)
            values.push_back(pixel % 7 == 0 ? -9999.0F : static_cast<float>(pixel) / 3.0F);
        model.place({1000.5, 10, 0, 2000.25, 0, -10}).fill(std::move(values), GDT_Float32);
        EXPECT_EQ(GDALSetRasterNoDataValue(model.band(), -9999), CE_None);
    }
    expectModelComesBack(folder / "in.tif");
}

TEST_F(ExportedRasters, RealElevationModelComesBackFromItsGridWithValuesNoDataAndPlace) {
    TIDEWATCH_NEED_SHARED(path, "autzen-dsm.tif");
    expectModelComesBack(path);
    EXPECT_THAT(report->notCarried(), ElementsAre("names of bands"));
    EXPECT_THAT(chart()->referenceSystem(), HasSubstr("NAD_1983_HARN_Lambert_Conformal_Conic"));
}

TEST_F(ExportedRasters, EveryBandOfAPictureComesBackFromItsGrid) {
    {
        NewRaster picture(folder / "in.tif", 70, 50, 3, GDT_Byte);
        picture.place(northUp);
        for (int band = 1; band <= 3; ++band) {
            std::vector<unsigned char> values;
            for (int pixel = 0; pixel < 70 * 50; ++pixel)
                values.push_back(static_cast<unsigned char>(pixel * band));
            picture.fill(std::move(values), GDT_Byte, band);
        }
    }
    expectBandsComeBack(folder / "in.tif");
}

TEST_F(ExportedRasters, EveryBandOfARealPictureComesBackFromItsGrid) {
    TIDEWATCH_NEED_SHARED(path, "autzen-height.tif");
    expectBandsComeBack(path);
}

} // namespace
