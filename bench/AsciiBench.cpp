// SPDX-License-Identifier: Apache-2.0
//
// The ASCII exporter beside loops of fprintf and of a stream that write the same bytes, and beside GDAL's
// driver for ESRI ASCII grids.
#include "anchor/Console.hpp"
#include "ascii/ExportPointCloudToASCII.hpp"
#include "bench/Ratio.hpp"
#include "bench/SurveyCloud.hpp"
#include "sheaf/Bundle.hpp"
#include "sheaf/HeldCreator.hpp"
#include "sheaf/MemArray.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/core.h>

#ifdef TIDEWATCH_GDAL
#include <gdal.h>
#endif

namespace {

namespace fs = std::filesystem;
using Geom::PhysicalSpace;

constexpr std::size_t pointCount = 5'000'000;
constexpr std::size_t side = 4000;
constexpr double cell = 0.5;
constexpr PhysicalSpace::point corner{500000.25, 5900000.75, 0};
constexpr int rounds = 5;

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error("AsciiBench: " + what);
}

std::vector<float> makeHeights() {
    std::vector<float> heights;
    heights.reserve(side * side);
    for (std::size_t row = 0; row < side; ++row) {
        for (std::size_t column = 0; column < side; ++column) {
            const double x = static_cast<double>(column) * cell;
            const double y = static_cast<double>(row) * cell;
            heights.push_back(static_cast<float>(6 * std::sin(x * 0.012) + 4 * std::cos(y * 0.017) +
                                                 0.3 * std::sin(x * 0.4 + y * 0.3)));
        }
    }
    return heights;
}

/// One grid with one fragment in a bundle, and the exporter over it.
class Export {
public:
    using Data = Anchor::StrongPtr<Sheaf::CreativeArrayBase>;

    Export(std::vector<std::pair<std::string, Data>> fields, const std::string& exported) {
        const auto grid = bundle_->makeSlice(0)->makeGrid("g");
        const auto representation =
            grid->skeletons().make({})->representations().make(grid->makeCartesianChart("", 0));
        // The exporter asks for the overlaps of a fragment and tells where there are none.
        const auto fragment = grid->makeFragment("f");
        fragment->overlapLow = Sheaf::MultiIndex<3>{};
        fragment->overlapHigh = Sheaf::MultiIndex<3>{};
        for (auto& [name, data] : fields)
            representation->makeField(name, data->elementType())->addFragment(fragment, std::move(data));
        field_ = exported;
    }

    void run(const fs::path& folder, bool flush) const {
        ExportLib::ExportPointCloudToASCII exporter;
        exporter.bundleptr = bundle_;
        exporter.OutputPath = folder.string();
        exporter.FieldFilter = {field_};
        exporter.setFlushLines(flush);
        if (!exporter.Run() || exporter.writtenFiles().size() != 1 || exporter.writtenFiles().front().failed)
            fail("the exporter failed");
    }

private:
    Anchor::StrongPtr<Sheaf::Bundle> bundle_ = Anchor::makeStrong<Sheaf::Bundle>();
    std::string field_;
};

template <class T>
Export::Data held(const Sheaf::Extents& extents, std::vector<T> elements) {
    return Anchor::makeStrong<Sheaf::HeldCreator>(Sheaf::makeArray(extents, std::move(elements)));
}

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

File openFile(const fs::path& path) {
    File file(std::fopen(path.c_str(), "w"), &std::fclose);
    if (!file)
        fail("cannot write " + path.string());
    return file;
}

void pointsByPrintf(const fs::path& path, const std::vector<PhysicalSpace::point>& points) {
    const File file = openFile(path);
    for (const PhysicalSpace::point& p : points)
        std::fprintf(file.get(), " %f %f %f\n", p.x, p.y, p.z);
}

void pointsByStream(const fs::path& path, const std::vector<PhysicalSpace::point>& points, bool flush) {
    std::ofstream stream(path);
    stream << std::fixed << std::setprecision(6);
    for (const PhysicalSpace::point& p : points) {
        stream << ' ' << p.x << ' ' << p.y << ' ' << p.z << '\n';
        if (flush)
            stream.flush();
    }
}

void gridByPrintf(const fs::path& path, const std::vector<float>& heights) {
    const File file = openFile(path);
    std::fprintf(file.get(),
                 "NCOLS %zu\nNROWS %zu\nXLLCENTER %.3f\nYLLCENTER %.3f\nCELLSIZE %.3f\nNODATA_VALUE -9999.\n",
                 side, side, corner.x, corner.y, cell);
    for (std::size_t row = side; row-- > 0;) {
        for (std::size_t column = 0; column < side; ++column)
            std::fprintf(file.get(), " %f ", static_cast<double>(heights[row * side + column]));
        std::fputc('\n', file.get());
    }
}

void gridByStream(const fs::path& path, const std::vector<float>& heights, bool flush) {
    std::ofstream stream(path);
    stream << "NCOLS " << side << "\nNROWS " << side << std::fixed << std::setprecision(3) << "\nXLLCENTER "
           << corner.x << "\nYLLCENTER " << corner.y << "\nCELLSIZE " << cell << "\nNODATA_VALUE -9999.\n"
           << std::setprecision(6);
    for (std::size_t row = side; row-- > 0;) {
        for (std::size_t column = 0; column < side; ++column)
            stream << ' ' << heights[row * side + column] << ' ';
        stream << '\n';
        if (flush)
            stream.flush();
    }
}

std::string readBytes(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Where the runs write; each begins without the files of the one before, since cutting those off would take
/// as long as writing them.
struct Place {
    fs::path folder;
    fs::path plain;
    fs::path exported;

    void clear() const {
        fs::remove(plain);
        fs::remove(exported);
    }
};

void requireSameBytes(const Place& place, const std::string& expected, const fs::path& path,
                      const char* who) {
    if (readBytes(path) != expected)
        fail(std::string(who) + " and the fprintf loop differ in their bytes");
    place.clear();
}

/// Runs the exporter beside its rivals; `others` are what is left out of the comparison of bytes.
void race(const Export& exporter, const Place& place, const Bench::Candidate& byPrintf,
          const Bench::Candidate& byStream, const Bench::Candidate& byFlushedStream,
          const std::vector<Bench::Candidate>& others) {
    const Bench::Candidate inBlocks{"exporter, not flushing", byPrintf.prepare,
                                    [&] { exporter.run(place.folder, false); }};
    const Bench::Candidate flushing{"exporter, flushing each line", byPrintf.prepare,
                                    [&] { exporter.run(place.folder, true); }};
    place.clear();
    byPrintf.run();
    const std::string bytes = readBytes(place.plain);
    place.clear();
    fmt::print("  {:.1f} MB\n", static_cast<double>(bytes.size()) / 1e6);
    for (const Bench::Candidate* candidate : {&byStream, &byFlushedStream}) {
        candidate->run();
        requireSameBytes(place, bytes, place.plain, "the stream");
    }
    for (const Bench::Candidate* candidate : {&inBlocks, &flushing}) {
        candidate->run();
        requireSameBytes(place, bytes, place.exported, "the exporter");
    }

    std::vector<Bench::Candidate> candidates{inBlocks, flushing, byPrintf, byStream, byFlushedStream};
    candidates.insert(candidates.end(), others.begin(), others.end());
    const Bench::Race result(candidates, rounds);
    result.printTimes();
    for (const std::size_t rival : {2U, 3U})
        Bench::printAtLeast("not flushing: speed / that of the " + candidates[rival].name,
                            result.ratio(rival, 0), 2.5);
    for (std::size_t rival = 5; rival < candidates.size(); ++rival)
        Bench::printAtLeast("not flushing: speed / that of " + candidates[rival].name, result.ratio(rival, 0),
                            2.5);
    Bench::printAtMost("flushing: time / that of the " + candidates[3].name, result.ratio(1, 3), 1.2);
    Bench::printAtMost("flushing: time / that of the " + candidates[4].name, result.ratio(1, 4), 1.2);
    place.clear();
}

void racePoints(const fs::path& folder) {
    const std::vector<PhysicalSpace::point> points = [] { return Bench::SurveyCloud(pointCount).points; }();
    const Export exporter({{"Positions", held({points.size()}, points)}}, "Positions");
    const Place place{folder, folder / "points.tmp", folder / "Positions/f.asc"};
    const auto clear = [&] { place.clear(); };
    fmt::print("{} points as XYZ text, folder {}\n", points.size(), folder.string());
    race(exporter, place, {"fprintf loop", clear, [&] { pointsByPrintf(place.plain, points); }},
         {"iostream loop", clear, [&] { pointsByStream(place.plain, points, false); }},
         {"iostream loop, flushing each line", clear, [&] { pointsByStream(place.plain, points, true); }},
         {});
}

void raceGrid(const fs::path& folder) {
    const std::vector<float> heights = makeHeights();
    const Sheaf::Extents extents{side, side, 1};
    const Export exporter(
        {{"Positions",
          Anchor::makeStrong<Sheaf::HeldCreator>(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
              corner, PhysicalSpace::vector{cell, cell, 1}, Sheaf::MultiIndex<3>{side, side, 1}))},
         {"Height", held(extents, heights)},
         {"CellType", held(extents, std::vector<unsigned char>(heights.size(), 1))}},
        "Height");
    const Place place{folder, folder / "grid.tmp", folder / "Height/f.grd"};
    const auto clear = [&] { place.clear(); };
    fmt::print("{} by {} floats as an ESRI ASCII grid, folder {}\n", side, side, folder.string());

    std::vector<Bench::Candidate> others;
#ifdef TIDEWATCH_GDAL
    GDALAllRegister();
    const auto size = static_cast<int>(side);
    const std::unique_ptr<void, void (*)(GDALDatasetH)> source(
        GDALCreate(GDALGetDriverByName("MEM"), "", size, size, 1, GDT_Float32, nullptr),
        [](GDALDatasetH dataset) { GDALClose(dataset); });
    std::vector<float> pixels;
    for (std::size_t row = side; row-- > 0;)
        pixels.insert(pixels.end(), heights.begin() + static_cast<std::ptrdiff_t>(row * side),
                      heights.begin() + static_cast<std::ptrdiff_t>((row + 1) * side));
    double transform[] = {corner.x, cell, 0, corner.y + cell * static_cast<double>(side), 0, -cell};
    GDALSetGeoTransform(source.get(), transform);
    if (GDALRasterIO(GDALGetRasterBand(source.get(), 1), GF_Write, 0, 0, size, size, pixels.data(), size,
                     size, GDT_Float32, 0, 0) != CE_None)
        fail("GDAL cannot take the grid");
    others.push_back({"GDAL's AAIGrid driver, six decimals", clear, [&] {
                          const char* const options[] = {"DECIMAL_PRECISION=6", nullptr};
                          GDALClose(GDALCreateCopy(GDALGetDriverByName("AAIGrid"), place.plain.c_str(),
                                                   source.get(), FALSE, options, nullptr, nullptr));
                      }});
#else
    fmt::print("built without GDAL (scripts/setup.sh installs it): its driver is left out\n");
#endif
    race(exporter, place, {"fprintf loop", clear, [&] { gridByPrintf(place.plain, heights); }},
         {"iostream loop", clear, [&] { gridByStream(place.plain, heights, false); }},
         {"iostream loop, flushing each line", clear, [&] { gridByStream(place.plain, heights, true); }},
         others);
}

} // namespace

int main(int argc, char** argv) {
    const fs::path folder = fs::path(argc > 1 ? argv[1] : ".") / "ascii-bench.tmp";
    fs::create_directories(folder);
    // The exporter announces every time step.
    Anchor::Console::setSink([](std::string_view) {});
    try {
        racePoints(folder);
        raceGrid(folder);
    } catch (const std::exception& error) {
        fmt::print(stderr, "{}\n", error.what());
        fs::remove_all(folder);
        return 1;
    }
    fs::remove_all(folder);
}
