// SPDX-License-Identifier: Apache-2.0
//
// reduceData beside PCL's VoxelGrid, and the memory that it takes.
#include "bench/Ratio.hpp"
#include "bench/SurveyCloud.hpp"
#include "pcd/reduceData.hpp"

#include <algorithm>
#include <cstdlib>
#include <malloc.h>
#include <new>
#include <string>
#include <vector>

#include <fmt/core.h>

#ifdef TIDEWATCH_HAS_PCL
#include <pcl/filters/voxel_grid.h>
#include <pcl/point_cloud.h>
#include <pcl/point_types.h>
#endif

namespace {

/// Bytes that operator new has given out and not got back, and the most there have been.
struct Heap {
    std::size_t bytes = 0;
    std::size_t peak = 0;
};
Heap heap;

void* counted(void* block) {
    if (block == nullptr)
        throw std::bad_alloc();
    heap.bytes += malloc_usable_size(block);
    heap.peak = std::max(heap.peak, heap.bytes);
    return block;
}

void release(void* block) noexcept {
    if (block != nullptr)
        heap.bytes -= malloc_usable_size(block);
    std::free(block);
}

} // namespace

void* operator new(std::size_t size) {
    return counted(std::malloc(size));
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return counted(std::aligned_alloc(static_cast<std::size_t>(alignment), size));
}
void operator delete(void* block) noexcept {
    release(block);
}
void operator delete(void* block, std::size_t) noexcept {
    release(block);
}
void operator delete(void* block, std::align_val_t) noexcept {
    release(block);
}
void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
    release(block);
}

namespace {

constexpr std::size_t pointCount = 2'000'000;
constexpr int rounds = 9;

Geom::PhysicalSpace::point lowerCorner(const std::vector<Geom::PhysicalSpace::point>& points) {
    auto lower = points.front();
    for (const auto& p : points)
        lower = {std::min(lower.x, p.x), std::min(lower.y, p.y), std::min(lower.z, p.z)};
    return lower;
}

void compare(const Bench::SurveyCloud& cloud, const std::string& order, double cellSize) {
    const auto lower = lowerCorner(cloud.points);
    std::size_t left = 0;
    std::size_t peak = 0;
    std::vector<Bench::Candidate> candidates;
    candidates.push_back({"reduceData", [] { heap.peak = heap.bytes; },
                          [&] {
                              const std::size_t before = heap.bytes;
                              const auto indices =
                                  ExportLib::reduceData(cellSize, cloud.points, cloud.intensities, lower, {});
                              left = indices.size();
                              peak = heap.peak - before;
                          }});
#ifdef TIDEWATCH_HAS_PCL
    const auto input = pcl::make_shared<pcl::PointCloud<pcl::PointXYZI>>();
    for (std::size_t i = 0; i < cloud.points.size(); ++i) {
        pcl::PointXYZI p;
        p.x = static_cast<float>(cloud.points[i].x);
        p.y = static_cast<float>(cloud.points[i].y);
        p.z = static_cast<float>(cloud.points[i].z);
        p.intensity = static_cast<float>(cloud.intensities[i]);
        input->push_back(p);
    }
    std::size_t leftByPcl = 0;
    for (const bool allFields : {true, false}) {
        candidates.push_back({allFields ? "VoxelGrid" : "VoxelGrid, coordinates only", [] {},
                              [&, allFields] {
                                  const auto leaf = static_cast<float>(cellSize);
                                  pcl::VoxelGrid<pcl::PointXYZI> grid;
                                  grid.setInputCloud(input);
                                  grid.setLeafSize(leaf, leaf, leaf);
                                  grid.setDownsampleAllData(allFields);
                                  pcl::PointCloud<pcl::PointXYZI> output;
                                  grid.filter(output);
                                  leftByPcl = output.size();
                              }});
    }
#endif
    const Bench::Race race(candidates, rounds);
    fmt::print("{} points, {}, cell size {}: {} left\n", cloud.points.size(), order, cellSize, left);
    race.printTimes();
#ifdef TIDEWATCH_HAS_PCL
    fmt::print("  VoxelGrid leaves {} (it lays its cells out from 0, not from the lower corner)\n",
               leftByPcl);
    Bench::printAtMost("time of reduceData / VoxelGrid", race.ratio(0, 1), 1.0);
    Bench::printAtMost("time of reduceData / VoxelGrid, coordinates only", race.ratio(0, 2), 1.0);
#endif
    Bench::printAtMost("extra memory, bytes a point",
                       static_cast<double>(peak) / static_cast<double>(cloud.points.size()), 48.0);
}

} // namespace

int main() {
#ifndef TIDEWATCH_HAS_PCL
    fmt::print("built without PCL (see bench/setup.sh): nothing to compare with\n");
#endif
    Bench::SurveyCloud cloud(pointCount);
    for (const std::string order : {"in scan order", "shuffled"}) {
        if (order == "shuffled")
            cloud.shuffle();
        for (const double cellSize : {0.5, 1.0, 5.0})
            compare(cloud, order, cellSize);
    }
}
