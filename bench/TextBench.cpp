// SPDX-License-Identifier: Apache-2.0
//
// The line writer beside an iostream, beside a plain write of the same bytes, and beside PCL's ASCII writer.
#include "bench/Ratio.hpp"
#include "bench/SurveyCloud.hpp"
#include "convlib/LineWriter.hpp"
#include "pcd/PointShading.hpp"
#include "pcd/heightQuantiles.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

#include <fmt/core.h>

#ifdef TIDEWATCH_HAS_PCL
#include <pcl/io/pcd_io.h>
#include <pcl/point_cloud.h>
#include <pcl/point_types.h>

/// The five columns as PCL sees them.
struct FiveColumns {
    float x, y, z, intensity, rgb;
};
POINT_CLOUD_REGISTER_POINT_STRUCT(FiveColumns,
                                  (float, x, x)(float, y, y)(float, z, z)(float, intensity,
                                                                          intensity)(float, rgb, rgb))
#endif

namespace {

constexpr std::size_t lineCount = 2'000'000;
constexpr int precision = 8;
constexpr int rounds = 9;

using Row = std::array<double, 5>;

std::vector<Row> makeRows() {
    const Bench::SurveyCloud cloud(lineCount);
    const auto [least, greatest] = std::minmax_element(cloud.intensities.begin(), cloud.intensities.end());
    const ExportLib::PointShading shading(ExportLib::heightQuantiles(cloud.points), *least, *greatest);
    std::vector<Row> rows;
    rows.reserve(lineCount);
    for (std::size_t i = 0; i < lineCount; ++i) {
        const auto& p = cloud.points[i];
        const float intensity = shading.intensity(cloud.intensities[i]);
        const float color = shading.color(p.z, intensity);
        rows.push_back({p.x, p.y, p.z, static_cast<double>(intensity), static_cast<double>(color)});
    }
    return rows;
}

void writeByLineWriter(const std::string& path, const std::vector<Row>& rows, bool flush) {
    std::ofstream stream(path);
    ConvLib::LineWriter lines(stream, flush);
    for (const Row& row : rows) {
        lines.generalRow(row, precision);
        lines.endLine();
    }
    lines.finish();
    stream.close();
    if (stream.fail())
        throw std::runtime_error("TextBench: cannot write " + path);
}

void writeByStream(const std::string& path, const std::vector<Row>& rows) {
    std::ofstream stream(path);
    for (const Row& row : rows) {
        stream << std::setprecision(precision) << row[0] << ' ' << row[1] << ' ' << row[2] << ' '
               << static_cast<float>(row[3]) << ' ' << static_cast<float>(row[4]) << '\n';
    }
    stream.close();
    if (stream.fail())
        throw std::runtime_error("TextBench: cannot write " + path);
}

void writePlainly(const std::string& path, const std::string& bytes) {
    constexpr std::size_t block = std::size_t{1} << 20;
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file < 0)
        throw std::runtime_error("TextBench: cannot write " + path);
    for (std::size_t begin = 0; begin < bytes.size();) {
        const ::ssize_t written = ::write(file, bytes.data() + begin, std::min(block, bytes.size() - begin));
        if (written <= 0)
            throw std::runtime_error("TextBench: cannot write " + path);
        begin += static_cast<std::size_t>(written);
    }
    ::close(file);
}

std::string readBytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace

int main(int argc, char** argv) {
    const std::filesystem::path folder = argc > 1 ? argv[1] : ".";
    const std::string path = (folder / "text-bench.tmp").string();
    const std::vector<Row> rows = makeRows();

    writeByStream(path, rows);
    const std::string bytes = readBytes(path);
    for (const bool flush : {false, true}) {
        writeByLineWriter(path, rows, flush);
        if (readBytes(path) != bytes) {
            fmt::print(stderr, "the line writer and the stream differ in their bytes\n");
            return 1;
        }
    }

    // A file that is there already would be cut off first, which takes as long as writing it.
    const auto fresh = [&path] { std::filesystem::remove(path); };
    const Bench::Candidate plain{"plain write of the same bytes, 1 MiB blocks", fresh,
                                 [&] { writePlainly(path, bytes); }};
    const Bench::Candidate inBlocks{"line writer, not flushing", fresh,
                                    [&] { writeByLineWriter(path, rows, false); }};
    const Bench::Candidate flushing{"line writer, flushing each line", fresh,
                                    [&] { writeByLineWriter(path, rows, true); }};
    const Bench::Candidate stream{"iostream, not flushing", fresh, [&] { writeByStream(path, rows); }};

    fmt::print("{} lines \"x y z intensity rgb\", precision {}, {:.1f} bytes a line, folder {}\n",
               rows.size(), precision, static_cast<double>(bytes.size()) / static_cast<double>(rows.size()),
               folder.string());
    {
        // Only these two, since slow ones in between would give the plain write memory that has gone cold.
        const Bench::Race race({plain, inBlocks}, rounds);
        race.printTimes();
        Bench::printAtLeast("not flushing: speed / that of a plain write", race.ratio(0, 1), 0.5);
    }
    {
        const Bench::Race race({flushing, stream}, rounds);
        race.printTimes();
        Bench::printAtMost("flushing: time / that of an iostream that does not", race.ratio(0, 1), 1.2);
    }
#ifdef TIDEWATCH_HAS_PCL
    pcl::PointCloud<FiveColumns> cloud;
    for (const Row& row : rows) {
        cloud.push_back({static_cast<float>(row[0]), static_cast<float>(row[1]), static_cast<float>(row[2]),
                         static_cast<float>(row[3]), static_cast<float>(row[4])});
    }
    {
        const Bench::Candidate byPcl{"PCL's ASCII writer", fresh,
                                     [&] { pcl::PCDWriter().writeASCII(path, cloud, precision); }};
        const Bench::Race race({inBlocks, byPcl}, rounds);
        race.printTimes();
        Bench::printAtLeast("not flushing: speed / that of PCL's ASCII writer", race.ratio(1, 0), 3.0);
    }
#else
    fmt::print("built without PCL (see bench/setup.sh): its writer is left out\n");
#endif
    fresh();
}
