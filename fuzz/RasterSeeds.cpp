// SPDX-License-Identifier: Apache-2.0
//
// Writes the seeds of RasterFuzz into the folder given: small valid files of the formats that are read.
#include <array>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <gdal.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Dataset = std::unique_ptr<void, void (*)(GDALDatasetH)>;

Dataset closing(GDALDatasetH dataset, const std::string& what) {
    if (dataset == nullptr)
        throw std::runtime_error("GDAL cannot make " + what);
    return {dataset, [](GDALDatasetH closed) { GDALClose(closed); }};
}

Dataset source(int bands, GDALDataType type) {
    constexpr int width = 19;
    constexpr int height = 11;
    Dataset dataset = closing(GDALCreate(GDALGetDriverByName("MEM"), "", width, height, bands, type, nullptr),
                              "the source");
    std::array<double, 6> transform{1000, 2, 0, 2000, 0, -2};
    GDALSetGeoTransform(dataset.get(), transform.data());
    std::vector<int> pixels(std::size_t{width} * height);
    for (int band = 1; band <= bands; ++band) {
        for (std::size_t pixel = 0; pixel < pixels.size(); ++pixel)
            pixels[pixel] = static_cast<int>(pixel * pixel % 251) + band;
        if (GDALRasterIO(GDALGetRasterBand(dataset.get(), band), GF_Write, 0, 0, width, height, pixels.data(),
                         width, height, GDT_Int32, 0, 0) != CE_None)
            throw std::runtime_error("GDAL cannot fill the source");
    }
    return dataset;
}

void write(const std::filesystem::path& path, const char* driver, const Dataset& from,
           std::vector<const char*> options = {}) {
    const GDALDriverH writer = GDALGetDriverByName(driver);
    if (writer == nullptr)
        return;
    options.push_back(nullptr);
    closing(GDALCreateCopy(writer, path.c_str(), from.get(), FALSE, options.data(), nullptr, nullptr), path);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: seeds-Raster FOLDER\n", stderr);
        return 2;
    }
    try {
        const std::filesystem::path folder = argv[1];
        std::filesystem::create_directories(folder);
        GDALAllRegister();
        const Dataset one = source(1, GDT_Byte);
        const Dataset three = source(3, GDT_Byte);
        const Dataset wide = source(1, GDT_Float32);
        GDALSetRasterNoDataValue(GDALGetRasterBand(wide.get(), 1), 5);
        for (const char* compression :
             {"COMPRESS=NONE", "COMPRESS=DEFLATE", "COMPRESS=LZW", "COMPRESS=PACKBITS"}) {
            const std::string name = std::string(compression).substr(9);
            write(folder / (name + "-one.tif"), "GTiff", one, {compression});
            write(folder / (name + "-three.tif"), "GTiff", three,
                  {compression, "TILED=YES", "BLOCKXSIZE=16", "BLOCKYSIZE=16"});
            write(folder / (name + "-wide.tif"), "GTiff", wide, {compression, "BIGTIFF=YES"});
        }
        for (const char* driver : {"PNG", "JPEG", "GIF", "BMP", "AAIGrid", "GSAG", "GSBG", "XYZ", "ZMap"})
            write(folder / driver, driver, one);
        write(folder / "PNM.pgm", "PNM", one);
        write(folder / "GS7BG", "GS7BG", wide);
        write(folder / "BT", "BT", wide);
        // What lies beside the files does not reach the reader there.
        std::vector<std::filesystem::path> companions;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            if (entry.path().extension() == ".xml" || entry.path().extension() == ".prj")
                companions.push_back(entry.path());
        }
        for (const auto& companion : companions)
            std::filesystem::remove(companion);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "seeds-Raster: %s\n", error.what());
        return 1;
    }
    return 0;
}
