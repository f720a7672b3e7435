// SPDX-License-Identifier: Apache-2.0
//
// The memory that the PCD exporter takes for each point, whose plan promises how much it is at most, for clouds that are
// thinned in the three ways there are. Usage: bench-pcd [POINTS] [FOLDER]
#include "anchor/Cache.hpp"
#include "anchor/Console.hpp"
#include "bench/Ratio.hpp"
#include "bench/peakMemory.hpp"
#include "pcd/ExportPointCloudToPCD.hpp"
#include "pcd/PcdPlan.hpp"
#include "sheaf/CachedCreator.hpp"
#include "sheaf/MemArray.hpp"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <string_view>
#include <typeinfo>
#include <unistd.h>
#include <vector>

#include <fmt/format.h>

namespace {

using Geom::PhysicalSpace;

constexpr std::uint64_t fragmentPoints = 1'000'000;

/// Positions or intensities that nobody holds.
class Source final : public Sheaf::CachedCreator {
public:
    Source(const std::type_info& type, std::uint64_t first, std::uint64_t count, double extent)
        : CachedCreator(type, Sheaf::Extents{count}),
          first_(first),
          count_(count),
          extent_(extent),
          isIntensity_(type == typeid(unsigned short)) {}

protected:
    [[nodiscard]] Made make() const override {
        // No two neighbours in one cell: that takes the most memory.
        const auto mixed = [this](std::uint64_t i) { return (first_ + i) * 0x9e3779b97f4a7c15U; };
        if (isIntensity_) {
            std::vector<unsigned short> values(count_);
            for (std::uint64_t i = 0; i < count_; ++i)
                values[i] = static_cast<unsigned short>(mixed(i) >> 50);
            return {Sheaf::makeArray(std::move(values))};
        }
        std::vector<PhysicalSpace::point> points(count_);
        for (std::uint64_t i = 0; i < count_; ++i)
            points[i] = {static_cast<double>(mixed(i) >> 32) * 0x1p-32 * extent_,
                         static_cast<double>(mixed(i) & 0xffffffffU) * 0x1p-32 * extent_,
                         static_cast<double>((mixed(i) >> 16) & 0xffffU) * 0x1p-16 * 30};
        return {Sheaf::makeArray(std::move(points))};
    }
    [[nodiscard]] std::uint64_t bytesToMake() const override {
        return count_ * (isIntensity_ ? sizeof(unsigned short) : sizeof(PhysicalSpace::point));
    }

private:
    std::uint64_t first_;
    std::uint64_t count_;
    double extent_;
    bool isIntensity_;
};

Anchor::StrongPtr<Sheaf::Bundle> makeBundle(std::uint64_t points, double extent) {
    auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    const auto grid = bundle->makeSlice(0)->makeGrid("cloud");
    const auto cloud = grid->skeletons().make({0, {}})->representations().make(
        grid->declareCartesianChart(std::string(Sheaf::Grid::standardChart)));
    const auto fill = [&](const char* name, const std::type_info& type) {
        const auto field = cloud->makeField(name, type);
        for (std::uint64_t first = 0; first < points; first += fragmentPoints)
            field->addFragment(
                grid->makeFragment(fmt::format("{:06}", first / fragmentPoints)),
                Anchor::makeStrong<Source>(type, first, std::min(fragmentPoints, points - first), extent));
    };
    fill("Positions", typeid(PhysicalSpace::point));
    fill("Intensity", typeid(unsigned short));
    return bundle;
}

std::uint64_t peakOfExport(const std::string& path, std::uint64_t points, double extent, double cellSize,
                           bool thinning) {
    return Bench::peakMemoryOf([&] {
        Anchor::Cache::MemCache().setLimit(0);
        const auto bundle = makeBundle(points, extent);
        ExportLib::ExportPointCloudToPCD exporter;
        exporter.bundleptr = bundle;
        exporter.OutputPath = path;
        exporter.CellSize = cellSize;
        exporter.Thinning = thinning;
        exporter.setFlushLines(false);
        exporter.Run();
    });
}

void measure(const std::string& path, std::uint64_t points) {
    struct Case {
        const char* name;
        double extent;
        double cellSize;
        bool thinning;
    };
    const std::uint64_t planned = [&] {
        const auto bundle = makeBundle(points, 1);
        const auto grid = bundle->slices().begin()->second.lock()->grids().at("cloud").lock();
        return ExportLib::PcdPlan::of(*grid, -1, [](const std::string&) { return true; }).memory();
    }();
    fmt::print("{} points, for which the plan states {:.0f} MiB\n", points, Bench::mebibytes(planned));
    for (const Case& each :
         {Case{"cells in 32 bits", 1000, 1, true}, Case{"cells in 64 bits", 1000, 0.01, true},
          Case{"cells by their coordinates", 1e9, 0.5, true}, Case{"no thinning", 1000, 1, false}}) {
        const std::uint64_t little = peakOfExport(path, 1000, each.extent, each.cellSize, each.thinning);
        const std::uint64_t peak = peakOfExport(path, points, each.extent, each.cellSize, each.thinning);
        const double bytes = static_cast<double>(peak - little) / static_cast<double>(points);
        Bench::printAtMost(fmt::format("peak memory, bytes a point, {}", each.name), bytes,
                           static_cast<double>(planned) / static_cast<double>(points));
    }
}

} // namespace

int main(int argc, char** argv) {
    const std::uint64_t points = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 20'000'000;
    const std::filesystem::path folder = argc > 2 ? argv[2] : std::filesystem::temp_directory_path();
    const std::string path = (folder / fmt::format("tidewatch-bench-{}.pcd", ::getpid())).string();
    // The exporter's own messages.
    Anchor::Console::setSink([](std::string_view) {});
    int status = 0;
    try {
        measure(path, points);
    } catch (const std::exception& error) {
        fmt::print(stderr, "{}\n", error.what());
        status = 1;
    }
    std::filesystem::remove(path);
    return status;
}
