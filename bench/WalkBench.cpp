// SPDX-License-Identifier: Apache-2.0
//
// Walks a bundle that is larger than the memory cache: the bounding box of all positions of a file of 100
// million points (or of the number given) within the default limit of 512 MiB. Prints the peak memory of the
// walk, measured in its own process, beside the size of the positions.   Usage: bench-walk [POINTS]
// [FOLDER]
#include "anchor/Cache.hpp"
#include "bench/peakMemory.hpp"
#include "convlib/Reader.hpp"
#include "readers/bundle/BundleFileWriter.hpp"
#include "readers/registerReaders.hpp"
#include "sheaf/CachedCreator.hpp"
#include "sheaf/MemArray.hpp"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

#include <fmt/format.h>

namespace {

using Bench::mebibytes;
using Bench::peakMemoryOf;
using Geom::PhysicalSpace;

constexpr std::uint64_t fragmentPoints = 1'000'000;

/// Positions that nobody holds: made anew for every fragment while the file is being written.
class Source final : public Sheaf::CachedCreator {
public:
    Source(std::uint64_t first, std::uint64_t count)
        : CachedCreator(typeid(PhysicalSpace::point), Sheaf::Extents{count}),
          first_(first),
          count_(count) {}

protected:
    [[nodiscard]] Made make() const override {
        std::vector<PhysicalSpace::point> points(count_);
        for (std::uint64_t i = 0; i < count_; ++i) {
            // Scattered bits, so that the file cannot shrink to nothing.
            const std::uint64_t mixed = (first_ + i) * 0x9e3779b97f4a7c15U;
            points[i] = {static_cast<double>(mixed >> 44) * 0.001, static_cast<double>(first_ + i) * 0.001,
                         static_cast<double>(mixed & 0xffffU) * 0.001};
        }
        return {Sheaf::makeArray(std::move(points))};
    }
    [[nodiscard]] std::uint64_t bytesToMake() const override { return count_ * sizeof(PhysicalSpace::point); }

private:
    std::uint64_t first_;
    std::uint64_t count_;
};

void writeSurvey(const std::string& path, std::uint64_t points) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    const auto grid = bundle->makeSlice(0)->makeGrid("large");
    const auto positions = grid->skeletons()
                               .make({0, {}})
                               ->representations()
                               .make(grid->declareCartesianChart(std::string(Sheaf::Grid::standardChart)))
                               ->makeField("Positions", typeid(PhysicalSpace::point));
    for (std::uint64_t first = 0; first < points; first += fragmentPoints) {
        positions->addFragment(grid->makeFragment(fmt::format("{:06}", first / fragmentPoints)),
                               Anchor::makeStrong<Source>(first, std::min(fragmentPoints, points - first)));
    }
    Tidewatch::writeBundleFile(*bundle, path);
}

void walkSurvey(const std::string& path) {
    Tidewatch::registerReaders();
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    ConvLib::readFile(*bundle, path, {});
    const auto grid = bundle->slices().begin()->second.lock()->grids().at("large").lock();
    const auto skeleton = grid->findHighestHomogenousVertexRefinement(100000000);
    const auto positions = grid->getField(grid->findCartesianChart(""), "Positions", skeleton);
    const auto start = std::chrono::steady_clock::now();
    Geom::BoundingBox box;
    Sheaf::expandBoundingBox(*positions, box);
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    fmt::print("box of {} fragments: ({}, {}, {}) to ({}, {}, {}), {:.1f} s\n",
               positions->getFragmentIDs().size(), box.lower().x, box.lower().y, box.lower().z, box.upper().x,
               box.upper().y, box.upper().z, seconds.count());
}

} // namespace

int main(int argc, char** argv) {
    const std::uint64_t points = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 100'000'000;
    const std::filesystem::path folder = argc > 2 ? argv[2] : std::filesystem::temp_directory_path();
    const std::string path = (folder / fmt::format("tidewatch-walk-{}.h5", ::getpid())).string();

    int status = 0;
    try {
        const std::uint64_t written = peakMemoryOf([&] { writeSurvey(path, points); });
        fmt::print("{} points, {:.0f} MiB of positions; written as {:.0f} MiB, peak memory {:.0f} MiB\n",
                   points, mebibytes(points * sizeof(PhysicalSpace::point)),
                   mebibytes(std::filesystem::file_size(path)), mebibytes(written));
        const std::uint64_t walked = peakMemoryOf([&] { walkSurvey(path); });
        fmt::print("walk: peak memory {:.0f} MiB with a cache limit of {:.0f} MiB\n", mebibytes(walked),
                   mebibytes(Anchor::Cache::defaultLimit));
    } catch (const std::exception& error) {
        fmt::print(stderr, "{}\n", error.what());
        status = 1;
    }
    std::filesystem::remove(path);
    return status;
}
