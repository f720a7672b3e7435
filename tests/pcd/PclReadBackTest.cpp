// SPDX-License-Identifier: Apache-2.0
//
// PCD files as a reader sees them that we did not write: the Point Cloud Library's own.
#include "pcd/ExportPointCloudToPCD.hpp"
#include "support/BundleBuilder.hpp"
#include "support/ConsoleCapture.hpp"
#include "support/TemporaryFolder.hpp"

#include <algorithm>
#include <cmath>
#include <locale>
#include <random>

#include <gtest/gtest.h>

#ifdef TIDEWATCH_HAS_PCL
#include <pcl/io/pcd_io.h>
#include <pcl/point_types.h>
#endif

namespace {

struct PclReadBack : ::testing::Test {
    void SetUp() override {
#ifndef TIDEWATCH_HAS_PCL
        GTEST_SKIP() << "no PCL: bench/setup.sh installs it";
#endif
        exporter.bundleptr = bundle;
        exporter.OutputPath = folder / "cloud.pcd";
        exporter.CellSize = 1e-3;
        std::mt19937_64 random(3);
        std::uniform_real_distribution<double> coordinate(-500.0, 500.0);
        for (int i = 0; i < 5000; ++i)
            positions.push_back({coordinate(random), coordinate(random), coordinate(random) * 0.01});
    }

    Support::TemporaryFolder folder;
    Support::ConsoleCapture console;
    Anchor::StrongPtr<Sheaf::Bundle> bundle = Anchor::makeStrong<Sheaf::Bundle>();
    ExportLib::ExportPointCloudToPCD exporter;
    Support::Points positions;
};

#ifdef TIDEWATCH_HAS_PCL

/// PCL's reader takes numbers as the locale writes them, so it gets the plain one while it reads.
class PlainLocale {
public:
    PlainLocale() : before_(std::locale::global(std::locale::classic())) {}
    ~PlainLocale() { std::locale::global(before_); }
    PlainLocale(const PlainLocale&) = delete;
    PlainLocale& operator=(const PlainLocale&) = delete;

private:
    std::locale before_;
};

/// Eight digits in the file and single precision in the reader leave this much of a coordinate.
bool isClose(float read, double written) {
    return std::abs(static_cast<double>(read) - written) <= std::abs(written) * 2e-7;
}

TEST_F(PclReadBack, UnreducedPlainCloudHasEveryPointWithTheShiftAsItsOrigin) {
    Support::GridBuilder(*bundle, 0, "g").field("Positions", "", positions);
    exporter.CellSize = 1e-9;
    ASSERT_TRUE(exporter.Run());
    ASSERT_EQ(exporter.writtenFiles().back().items, positions.size());

    const PlainLocale plain;
    pcl::PointCloud<pcl::PointXYZ> cloud;
    ASSERT_EQ(pcl::io::loadPCDFile(exporter.OutputPath, cloud), 0);
    ASSERT_EQ(cloud.size(), positions.size());
    const auto origin = cloud.sensor_origin_;
    std::vector<bool> found(positions.size());
    std::size_t matches = 0;
    for (const pcl::PointXYZ& read : cloud) {
        for (std::size_t i = 0; i < positions.size(); ++i) {
            if (!found[i] && isClose(read.x, positions[i].x - static_cast<double>(origin[0])) &&
                isClose(read.y, positions[i].y - static_cast<double>(origin[1])) &&
                isClose(read.z, positions[i].z - static_cast<double>(origin[2]))) {
                found[i] = true;
                ++matches;
                break;
            }
        }
    }
    EXPECT_EQ(matches, positions.size());
}

TEST_F(PclReadBack, ReducedCloudWithExactCountsHasItsIntensities) {
    std::vector<unsigned short> intensities;
    for (std::size_t i = 0; i < positions.size(); ++i)
        intensities.push_back(static_cast<unsigned short>(1 + i * 13 % 60000));
    Support::GridBuilder(*bundle, 0, "g")
        .field("Positions", "", positions)
        .field("Intensity", "", intensities);
    exporter.CellSize = 100;
    exporter.ExactCounts = true;
    ASSERT_TRUE(exporter.Run());
    const std::uint64_t lines = exporter.writtenFiles().back().items;
    ASSERT_LT(lines, positions.size());

    const PlainLocale plain;
    pcl::PointCloud<pcl::PointXYZI> cloud;
    ASSERT_EQ(pcl::io::loadPCDFile(exporter.OutputPath, cloud), 0);
    EXPECT_EQ(cloud.size(), lines);
    float brightest = 0;
    for (const pcl::PointXYZI& read : cloud) {
        EXPECT_GE(read.intensity, 0.0F);
        brightest = std::max(brightest, read.intensity);
    }
    // The brightest point of the cloud survives in its cell.
    EXPECT_FLOAT_EQ(brightest, 1.0F);
}

#else

TEST_F(PclReadBack, UnreducedPlainCloudHasEveryPointWithTheShiftAsItsOrigin) {}
TEST_F(PclReadBack, ReducedCloudWithExactCountsHasItsIntensities) {}

#endif

} // namespace
