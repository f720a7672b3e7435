// SPDX-License-Identifier: Apache-2.0
//
// Reads a bundle file, a large raster and a thousand small rasters, in processes of their own and in this one, and
// compares the times within one run.   Usage: bench-apart [FOLDER]
#include "anchor/Cache.hpp"
#include "bench/Ratio.hpp"
#include "convlib/Reader.hpp"
#include "readers/bundle/BundleFileWriter.hpp"
#include "readers/registerReaders.hpp"
#include "sheaf/HeldCreator.hpp"
#include "sheaf/MemArray.hpp"

#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <gdal.h>
#include <random>
#include <string>
#include <vector>

#include <fmt/format.h>

namespace {

namespace fs = std::filesystem;
using Tidewatch::Reading;

constexpr int smallRasters = 1000;

void writeBundle(const std::string& path) {
    constexpr std::size_t points = 1'000'000;
    constexpr int fragments = 4;
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    const auto grid = bundle->makeSlice(0)->makeGrid("survey");
    const auto field = grid->skeletons()
                           .make({0, {}})
                           ->representations()
                           .make(grid->declareCartesianChart(std::string(Sheaf::Grid::standardChart)))
                           ->makeField("Positions", typeid(Geom::PhysicalSpace::point));
    std::mt19937_64 random(1);
    for (int fragment = 0; fragment < fragments; ++fragment) {
        std::vector<Geom::PhysicalSpace::point> values(points);
        for (std::size_t i = 0; i < points; ++i)
            values[i] = {static_cast<double>(random() % 1'000'000) * 0.001, static_cast<double>(i) * 0.001,
                         static_cast<double>(random() % 50'000) * 0.001};
        field->addFragment(grid->makeFragment(std::to_string(fragment)),
                           Anchor::makeStrong<Sheaf::HeldCreator>(Sheaf::makeArray(std::move(values))));
    }
    Tidewatch::writeBundleFile(*bundle, path);
}

void writeRaster(const std::string& path, int side, bool isCompressed) {
    GDALAllRegister();
    const char* const options[] = {"TILED=YES", isCompressed ? "COMPRESS=DEFLATE" : nullptr, nullptr};
    const GDALDatasetH file = GDALCreate(GDALGetDriverByName("GTiff"), path.c_str(), side, side, 1,
                                         GDT_Float32, side > 100 ? options : nullptr);
    std::vector<float> values(static_cast<std::size_t>(side) * static_cast<std::size_t>(side));
    std::mt19937 random(1);
    for (float& value : values)
        value = static_cast<float>(random() % 100'000) * 0.01F;
    if (file == nullptr || GDALRasterIO(GDALGetRasterBand(file, 1), GF_Write, 0, 0, side, side, values.data(),
                                        side, side, GDT_Float32, 0, 0) != CE_None)
        throw std::runtime_error("cannot write " + path);
    GDALClose(file);
}

/// Reads a file and all its arrays.
void readAll(const std::string& path) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    ConvLib::readFile(*bundle, path, {});
    for (const auto& [time, slice] : bundle->slices()) {
        for (const auto& [name, grid] : slice.lock()->grids()) {
            grid.lock()->skeletons().iterate_all(
                [](const Sheaf::FieldFragment& stop) { return static_cast<bool>(stop.data->create(false)); });
        }
    }
}

void compare(const std::string& what, const std::vector<std::string>& files, int rounds, double goal) {
    fmt::print("{}\n", what);
    const auto read = [&] {
        for (const std::string& file : files)
            readAll(file);
    };
    const Bench::Race race({{"apart", [] { Tidewatch::registerReaders(Reading::Apart); }, read},
                            {"in the process", [] { Tidewatch::registerReaders(Reading::InProcess); }, read}},
                           rounds);
    race.printTimes();
    Bench::printAtMost("apart against in the process", race.ratio(0, 1), goal);
}

} // namespace

int main(int argc, char** argv) {
    try {
        const fs::path folder =
            argc > 1 ? fs::path(argv[1]) : fs::temp_directory_path() / "tidewatch-bench-apart";
        fs::create_directories(folder);
        const std::string bundle = (folder / "bundle.h5").string();
        const std::string raster = (folder / "raster.tif").string();
        writeBundle(bundle);
        writeRaster(raster, 4000, true);
        std::vector<std::string> small;
        for (int number = 0; number < smallRasters; ++number) {
            small.push_back((folder / fmt::format("small{}.tif", number)).string());
            writeRaster(small.back(), 20, false);
        }
        compare("A bundle file of 4 million points, compressed", {bundle}, 9, 1.05);
        compare("A raster of 4000 by 4000 pixels, compressed", {raster}, 9, 1.05);
        compare("A thousand rasters of 20 by 20 pixels", small, 5, 1.3);
        fs::remove_all(folder);
    } catch (const std::exception& error) {
        fmt::print(stderr, "bench-apart: {}\n", error.what());
        return 1;
    }
    return 0;
}
