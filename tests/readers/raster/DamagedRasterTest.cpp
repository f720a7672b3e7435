// SPDX-License-Identifier: Apache-2.0
//
// GeoTIFF files whose directory is damaged in every way: whatever GDAL does with them, the host is told of an error
// that names the file, or gets what a second reader finds in the file, too.
#include "anchor/Error.hpp"
#include "readers/raster/RasterReader.hpp"
#include "sheaf/Bundle.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/TypedArray.hpp"
#include "support/TemporaryFolder.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <gdal.h>
#include <ogr_srs_api.h>
#include <optional>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>
#include <sys/wait.h>

namespace {

constexpr int side = 12;

/// The first band, from the last row on, as numbers; nothing for a file that is not taken for a raster.
std::optional<std::vector<double>> readBand(const std::string& path) {
    const Tidewatch::RasterReader reader;
    if (!reader.recognises(path, {}))
        return std::nullopt;
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    ConvLib::ReadOptions options;
    options.MaximumArrayBytes = std::uint64_t{16} << 20;
    reader.read(*bundle, path, options);
    const auto grid = bundle->slices().begin()->second.lock()->grids().begin()->second.lock();
    const auto field = grid->findHighestHomogenousVertexRefinement(0)
                           ->representations()(grid->findCartesianChart(""))
                           ->findField("Band1");
    const auto array = Anchor::dynamicCast<Sheaf::MemBase>(
        field->getCreator(field->getFragmentIDs().front())->create(false));
    std::vector<double> numbers;
    Sheaf::visitElementType(array->elementType(), [&](auto tag) {
        using T = typename decltype(tag)::type;
        if constexpr (std::is_arithmetic_v<T>) {
            for (const T value : Anchor::dynamicCast<Sheaf::TypedArray<T>>(array)->base_vector())
                numbers.push_back(static_cast<double>(value));
        }
    });
    return numbers;
}

/// Whether GDAL by itself, in a process of its own, finds these numbers in the first band, whichever way its rows and
/// columns run; nothing where it comes to no end.
std::optional<bool> gdalAgrees(const std::string& path, std::vector<double> numbers) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(5);
        GDALAllRegister();
        CPLPushErrorHandler(CPLQuietErrorHandler);
        const GDALDatasetH dataset = GDALOpen(path.c_str(), GA_ReadOnly);
        if (dataset == nullptr)
            ::_exit(2);
        const int width = GDALGetRasterXSize(dataset);
        const int height = GDALGetRasterYSize(dataset);
        std::vector<double> found(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
        if (GDALRasterIO(GDALGetRasterBand(dataset, 1), GF_Read, 0, 0, width, height, found.data(), width,
                         height, GDT_Float64, 0, 0) != CE_None)
            ::_exit(2);
        // Rows and columns may be turned.
        std::sort(found.begin(), found.end());
        std::sort(numbers.begin(), numbers.end());
        ::_exit(found == numbers ? 0 : 1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) == 2)
        return std::nullopt;
    return WEXITSTATUS(status) == 0;
}

class DamagedDirectory : public ::testing::TestWithParam<std::size_t> {
protected:
    static constexpr std::size_t parts = 4;

    void SetUp() override {
        GDALAllRegister();
        const char* const options[] = {"COMPRESS=DEFLATE", "BLOCKYSIZE=5", nullptr};
        const GDALDatasetH file =
            GDALCreate(GDALGetDriverByName("GTiff"), file_.c_str(), side, side, 1, GDT_UInt16, options);
        ASSERT_NE(file, nullptr);
        std::array<double, 6> transform{100, 1, 0, 200, 0, -1};
        GDALSetGeoTransform(file, transform.data());
        std::vector<unsigned short> values(std::size_t{side} * side);
        std::mt19937 random(1);
        for (unsigned short& value : values)
            value = static_cast<unsigned short>(random());
        ASSERT_EQ(GDALRasterIO(GDALGetRasterBand(file, 1), GF_Write, 0, 0, side, side, values.data(), side,
                               side, GDT_UInt16, 0, 0),
                  CE_None);
        GDALClose(file);
        good_ = Support::readBytes(file_);
        const auto found = readBand(file_);
        ASSERT_TRUE(found);
        sound_ = *found;
        ASSERT_EQ(gdalAgrees(file_, sound_), true);
    }

    [[nodiscard]] unsigned numberAt(std::size_t place) const {
        return static_cast<unsigned char>(good_[place]) + 256U * static_cast<unsigned char>(good_[place + 1]);
    }

    Support::TemporaryFolder folder_;
    std::string file_ = folder_ / "damaged.tif";
    std::string good_;
    std::vector<double> sound_;
};

TEST_P(DamagedDirectory, EachIsAnErrorThatNamesTheFileOrGivesWhatASecondReaderFinds) {
#ifdef TIDEWATCH_ADDRESS_SANITIZER
    GTEST_SKIP()
        << "AddressSanitizer: fills new memory in its own way, so what no decoder has filled is not found";
#endif
    // TIFF 6.0, section 2: the directory's place, its number of entries, and 12 bytes each.
    const std::size_t directory = numberAt(4);
    const std::size_t bytes = 2 + 12 * std::size_t{numberAt(directory)} + 4;
    constexpr std::size_t values = 7;
    constexpr std::size_t tried = 400;
    std::vector<std::size_t> all(values * bytes);
    for (std::size_t i = 0; i < all.size(); ++i)
        all[i] = i;
    std::shuffle(all.begin(), all.end(), std::mt19937(20261121));
    if (std::getenv("TIDEWATCH_THOROUGH") == nullptr)
        all.resize(std::min(all.size(), tried));
    for (std::size_t i = GetParam(); i < all.size(); i += parts) {
        std::string damaged = good_;
        char& byte = damaged[directory + all[i] / values];
        const auto old = static_cast<unsigned char>(byte);
        const std::array<unsigned, values> others{0, 1, 0x7f, 0x80, 0xff, old + 1U, old ^ 0x10U};
        byte = static_cast<char>(others[all[i] % values]);
        Support::writeBytes(file_, damaged);
        try {
            const auto found = readBand(file_);
            EXPECT_TRUE(!found || gdalAgrees(file_, *found).value_or(*found == sound_))
                << "damage " << all[i];
        } catch (const Anchor::Error& error) {
            EXPECT_NE(std::string_view(error.what()).find(file_), std::string_view::npos) << error.what();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Parts, DamagedDirectory, ::testing::Range<std::size_t>(0, 4));

/// Raster systems of all kinds are told of apart as they are in the process.
TEST(RasterSystems, OfEpsgCompoundAndUserDefinedKindAreFoundApart) {
    const Support::TemporaryFolder folder;
    GDALAllRegister();
    const char* const systems[] = {
        "EPSG:32633", "EPSG:7415", "EPSG:4979",
        "PROJCS[\"mine\",GEOGCS[\"mine\",DATUM[\"mine\",SPHEROID[\"mine\",6378000,298]],PRIMEM[\"Greenwich\",0],"
        "UNIT[\"degree\",0.0174532925199433]],PROJECTION[\"Transverse_Mercator\"],PARAMETER[\"latitude_of_origin\",1],"
        "PARAMETER[\"central_meridian\",2],PARAMETER[\"scale_factor\",0.9],PARAMETER[\"false_easting\",3],"
        "PARAMETER[\"false_northing\",4],UNIT[\"metre\",1]]"};
    int number = 0;
    for (const char* const text : systems) {
        const std::string path = folder / ("system" + std::to_string(number++) + ".tif");
        const GDALDatasetH file =
            GDALCreate(GDALGetDriverByName("GTiff"), path.c_str(), 2, 2, 1, GDT_Byte, nullptr);
        const OGRSpatialReferenceH system = OSRNewSpatialReference(nullptr);
        ASSERT_EQ(OSRSetFromUserInput(system, text), OGRERR_NONE) << text;
        std::array<double, 6> transform{100, 1, 0, 200, 0, -1};
        GDALSetGeoTransform(file, transform.data());
        ASSERT_EQ(GDALSetSpatialRef(file, system), CE_None);
        GDALClose(file);
        for (const auto reading : {Tidewatch::Reading::Apart, Tidewatch::Reading::InProcess}) {
            const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
            static_cast<void>(Tidewatch::RasterReader(reading).read(*bundle, path, {}));
            const auto grid = bundle->slices().begin()->second.lock()->grids().begin()->second.lock();
            const std::string& found = grid->findChart("")->referenceSystem();
            const OGRSpatialReferenceH back = OSRNewSpatialReference(found.c_str());
            ASSERT_NE(back, nullptr) << text << ": " << found;
            EXPECT_TRUE(OSRIsSame(back, system)) << found;
            OSRDestroySpatialReference(back);
        }
        OSRDestroySpatialReference(system);
    }
}

} // namespace
