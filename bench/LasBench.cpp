// SPDX-License-Identifier: Apache-2.0
//
// The LAS exporter with all attributes of 5 million points: .laz beside the LASzip library alone on the same
// records, .las beside a plain write of the same bytes, and the memory that a run takes.   Usage: bench-las
// [FOLDER]
#include "anchor/Cache.hpp"
#include "bench/Ratio.hpp"
#include "bench/SurveyCloud.hpp"
#include "bench/peakMemory.hpp"
#include "las/ExportPointCloudToLas.hpp"
#include "sheaf/CachedCreator.hpp"
#include "sheaf/HeldCreator.hpp"
#include "sheaf/MemArray.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <unistd.h>
#include <utility>
#include <vector>

#include <fmt/core.h>
#include <laszip/laszip_api.h>

namespace {

constexpr std::size_t pointCount = 5'000'000;
constexpr std::size_t fragmentPoints = 1'000'000;
constexpr int rounds = 5;

template <class T>
using List = std::vector<T>;

/// Every attribute that the exporter knows, for one fragment.
struct Fragment {
    List<Geom::PhysicalSpace::point> positions;
    List<unsigned char> classification, returnNumber, numberOfReturns, edgeOfFlightLine, scanDirectionFlag,
        userData;
    List<unsigned short> intensity, pointSourceID, amplitude;
    List<signed char> scanAngleRank;
    List<double> gpsTime;
    List<Geom::RGB<unsigned char>> rgb;
    List<float> reflectance;

    /// `positionOf` and `brightnessOf` give the position and intensity of a point of the cloud.
    template <class Position, class Brightness>
    Fragment(std::size_t first, std::size_t count, Position&& positionOf, Brightness&& brightnessOf) {
        visit([&](const char*, auto& list) { list.reserve(count); });
        for (std::size_t i = first; i < first + count; ++i) {
            const Geom::PhysicalSpace::point p = positionOf(i);
            const unsigned short bright = brightnessOf(i);
            const double swing = p.x / 500.0;
            const bool isCanopy = p.z > 12.0;
            const auto returns = static_cast<unsigned char>(isCanopy ? 1 + i % 4 : 1);
            positions.push_back(p);
            intensity.push_back(bright);
            classification.push_back(isCanopy ? 5 : 2);
            numberOfReturns.push_back(returns);
            returnNumber.push_back(static_cast<unsigned char>(1 + i % returns));
            edgeOfFlightLine.push_back(std::abs(swing) > 0.999 ? 1 : 0);
            scanDirectionFlag.push_back(static_cast<unsigned char>(i / 2236 % 2));
            userData.push_back(0);
            pointSourceID.push_back(static_cast<unsigned short>(1 + i / 1'250'000));
            scanAngleRank.push_back(static_cast<signed char>(swing * 30.0));
            gpsTime.push_back(300000000.0 + static_cast<double>(i) * 2e-6);
            rgb.push_back({});
            for (std::size_t channel = 0; channel < 3; ++channel)
                rgb.back()[channel] = static_cast<unsigned char>(bright / (8 + channel));
            reflectance.push_back(-25.0F + static_cast<float>(bright) * 0.01F);
            amplitude.push_back(bright);
        }
    }

    /// The lists of no fragment, for their names and types.
    Fragment() = default;

    /// Calls a visitor with the name and the list of each attribute.
    template <class Visitor>
    void visit(Visitor&& visitor) {
        visitor("Positions", positions);
        visitor("Classification", classification);
        visitor("Intensity", intensity);
        visitor("ReturnNumber", returnNumber);
        visitor("NumberOfReturns", numberOfReturns);
        visitor("EdgeOfFlightLine", edgeOfFlightLine);
        visitor("ScanAngleRank", scanAngleRank);
        visitor("ScanDirectionFlag", scanDirectionFlag);
        visitor("UserData", userData);
        visitor("PointSourceID", pointSourceID);
        visitor("GPSTime", gpsTime);
        visitor("RGB", rgb);
        visitor("Reflectance", reflectance);
        visitor("Amplitude", amplitude);
    }
};

/// A bundle of one grid; `makeCreator(name, number, type)` gives what makes an attribute of a fragment.
template <class MakeCreator>
Anchor::StrongPtr<Sheaf::Bundle> makeBundle(std::size_t fragments, MakeCreator&& makeCreator) {
    auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    const auto grid = bundle->makeSlice(0)->makeGrid("survey");
    const auto representation = grid->skeletons().make({0, {}})->representations().make(
        grid->declareCartesianChart(std::string(Sheaf::Grid::standardChart)));
    Fragment().visit([&](const char* name, auto& list) {
        const std::type_info& type = typeid(list[0]);
        const auto field = representation->makeField(name, type);
        for (std::size_t i = 0; i < fragments; ++i)
            field->addFragment(grid->makeFragment(fmt::format("{:06}", i)), makeCreator(name, i, type));
    });
    return bundle;
}

void exportTo(const Anchor::StrongPtr<Sheaf::Bundle>& bundle, const std::string& path, int version) {
    ExportLib::ExportPointCloudToLas exporter;
    exporter.bundleptr = bundle;
    exporter.OutputPath = path;
    exporter.Version = version;
    exporter.uncompressed = path.ends_with(".las");
    exporter.Run();
    if (exporter.writtenFiles().size() != 1 || exporter.writtenFiles()[0].failed ||
        exporter.writtenFiles()[0].items == 0)
        throw std::runtime_error("LasBench: cannot write " + path);
}

std::vector<char> readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<char> bytes(std::filesystem::file_size(path));
    in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!in)
        throw std::runtime_error("LasBench: cannot read " + path);
    return bytes;
}

void writePlainly(const std::string& path, const std::vector<char>& bytes) {
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    constexpr std::size_t block = 1 << 20;
    for (std::size_t done = 0; done < bytes.size(); done += block) {
        const std::size_t size = std::min(block, bytes.size() - done);
        if (::write(file, bytes.data() + done, size) != static_cast<ssize_t>(size))
            throw std::runtime_error("LasBench: cannot write " + path);
    }
    ::close(file);
}

/// The records of an uncompressed file as LASzip takes them, and their extra bytes.
struct LaszipPoints {
    std::vector<laszip_point_struct> points;
    std::vector<laszip_U8> extraBytes;
    std::size_t extraByteCount;
    laszip_header_struct header{};

    explicit LaszipPoints(const std::string& path) {
        laszip_POINTER reader = nullptr;
        laszip_BOOL isCompressed = 0;
        laszip_header_struct* stated = nullptr;
        laszip_point_struct* point = nullptr;
        check(laszip_create(&reader));
        check(laszip_open_reader(reader, path.c_str(), &isCompressed));
        check(laszip_get_header_pointer(reader, &stated));
        check(laszip_get_point_pointer(reader, &point));
        header = *stated;
        // The attributes of the extra bytes make no difference to the compressor.
        header.vlrs = nullptr;
        header.number_of_variable_length_records = 0;
        header.offset_to_point_data = header.header_size;
        const std::size_t count =
            std::max<std::size_t>(stated->number_of_point_records, stated->extended_number_of_point_records);
        extraByteCount = static_cast<std::size_t>(point->num_extra_bytes);
        points.reserve(count);
        extraBytes.reserve(count * extraByteCount);
        for (std::size_t i = 0; i < count; ++i) {
            check(laszip_read_point(reader));
            points.push_back(*point);
            extraBytes.insert(extraBytes.end(), point->extra_bytes, point->extra_bytes + extraByteCount);
        }
        check(laszip_close_reader(reader));
        check(laszip_destroy(reader));
    }

    void compressTo(const std::string& path) const {
        laszip_POINTER writer = nullptr;
        laszip_point_struct* point = nullptr;
        check(laszip_create(&writer));
        check(laszip_set_header(writer, &header));
        check(laszip_request_native_extension(writer, 1));
        check(laszip_open_writer(writer, path.c_str(), 1));
        check(laszip_get_point_pointer(writer, &point));
        const std::size_t common = offsetof(laszip_point_struct, num_extra_bytes);
        for (std::size_t i = 0; i < points.size(); ++i) {
            std::memcpy(static_cast<void*>(point), &points[i], common);
            std::memcpy(point->extra_bytes, extraBytes.data() + i * extraByteCount, extraByteCount);
            check(laszip_write_point(writer));
        }
        check(laszip_close_writer(writer));
        check(laszip_destroy(writer));
    }

private:
    static void check(laszip_I32 status) {
        if (status != 0)
            throw std::runtime_error("LasBench: LASzip failed");
    }
};

void report(const std::string& what, const Bench::Race& race, std::uint64_t bytes) {
    race.printTimes();
    fmt::print("  {}: {:.2f} million points a second, {:.0f} MiB\n", what,
               static_cast<double>(pointCount) * 1e-6 / race.seconds(0), Bench::mebibytes(bytes));
}

void compareSpeed(const std::string& folder) {
    using Arrays = std::map<std::string, Anchor::StrongPtr<Sheaf::MemBase>>;
    std::vector<Arrays> arrays(pointCount / fragmentPoints);
    {
        const Bench::SurveyCloud cloud(pointCount);
        for (std::size_t i = 0; i < arrays.size(); ++i) {
            Fragment fragment(
                i * fragmentPoints, fragmentPoints, [&](std::size_t point) { return cloud.points[point]; },
                [&](std::size_t point) { return cloud.intensities[point]; });
            fragment.visit(
                [&](const char* name, auto& list) { arrays[i][name] = Sheaf::makeArray(std::move(list)); });
        }
    }
    const auto bundle =
        makeBundle(arrays.size(), [&](const char* name, std::size_t i, const std::type_info&) {
            return Anchor::makeStrong<Sheaf::HeldCreator>(arrays[i][name]);
        });

    const std::string las = folder + "/tidewatch-bench.las";
    const std::string laz = folder + "/tidewatch-bench.laz";
    const std::string other = folder + "/tidewatch-bench.other";
    const auto clear = [&] {
        for (const std::string& path : {las, laz, other})
            std::filesystem::remove(path);
    };
    for (const int version : {2, 4}) {
        fmt::print("LAS 1.{}, {} points in {} fragments, all attributes\n", version, pointCount,
                   arrays.size());
        clear();
        exportTo(bundle, las, version);
        {
            const std::vector<char> bytes = readAll(las);
            const Bench::Race race(
                {{"exporter, .las", clear, [&] { exportTo(bundle, las, version); }},
                 {"plain write of the same bytes", clear, [&] { writePlainly(other, bytes); }}},
                rounds);
            report(".las", race, bytes.size());
            Bench::printAtLeast("speed of the exporter / plain write", race.ratio(1, 0), 0.5);
        }
        clear();
        exportTo(bundle, las, version);
        {
            const LaszipPoints points(las);
            clear();
            const Bench::Race race(
                {{"exporter, .laz", clear, [&] { exportTo(bundle, laz, version); }},
                 {"LASzip alone on the same records", clear, [&] { points.compressTo(other); }}},
                rounds);
            exportTo(bundle, laz, version);
            report(".laz", race, std::filesystem::file_size(laz));
            Bench::printAtLeast("speed of the exporter / LASzip alone", race.ratio(1, 0), 0.9);
        }
        clear();
    }
}

/// An attribute of a fragment that is made on demand together with the others, as those of a compressed file
/// are.
class LateCreator final : public Sheaf::CachedCreator {
public:
    using Family = std::map<std::string, const LateCreator*>;

    LateCreator(const std::type_info& type, const char* name, std::size_t number, Family& family)
        : CachedCreator(type, Sheaf::Extents{fragmentPoints}),
          number_(number),
          family_(family) {
        family_[name] = this;
    }

protected:
    [[nodiscard]] Made make() const override {
        Fragment fragment(
            number_ * fragmentPoints, fragmentPoints,
            [](std::size_t i) {
                const double angle = static_cast<double>(i) * 1e-3;
                return Geom::PhysicalSpace::point{500.0 * std::sin(angle), static_cast<double>(i) * 1e-4,
                                                  20.0 * std::cos(angle)};
            },
            [](std::size_t i) { return static_cast<unsigned short>(i * 7 % 2000); });
        Made made;
        fragment.visit([&](const char* name, auto& list) {
            const LateCreator* const creator = family_.at(name);
            auto array = Sheaf::makeArray(std::move(list));
            if (creator == this)
                made.array = std::move(array);
            else
                made.siblings.push_back(
                    {Anchor::StrongPtr<const Sheaf::CachedCreator>(creator), std::move(array)});
        });
        return made;
    }
    [[nodiscard]] std::uint64_t bytesToMake() const override { return bytesOfFragment(); }

public:
    [[nodiscard]] static std::uint64_t bytesOfFragment() {
        std::uint64_t bytes = 0;
        Fragment().visit([&](const char*, auto& list) { bytes += fragmentPoints * sizeof(list[0]); });
        return bytes;
    }

private:
    std::size_t number_;
    Family& family_;
};

/// The peak of resident memory of an export, in bytes, measured in its own process.
std::uint64_t peakOfExport(const std::string& path, int version) {
    const std::uint64_t peak = Bench::peakMemoryOf([&] {
        Anchor::Cache::MemCache().setLimit(0);
        std::vector<LateCreator::Family> families(pointCount / fragmentPoints);
        const auto bundle =
            makeBundle(families.size(), [&](const char* name, std::size_t i, const std::type_info& type) {
                return Anchor::makeStrong<LateCreator>(type, name, i, families[i]);
            });
        exportTo(bundle, path, version);
    });
    std::filesystem::remove(path);
    return peak;
}

void measureMemory(const std::string& folder) {
    const std::uint64_t fragment = LateCreator::bytesOfFragment();
    for (const int version : {2, 4}) {
        for (const char* const extension : {".las", ".laz"}) {
            const std::uint64_t peak = peakOfExport(folder + "/tidewatch-bench" + extension, version);
            fmt::print("LAS 1.{} {}: peak memory {:.0f} MiB, one fragment {:.0f} MiB\n", version, extension,
                       Bench::mebibytes(peak), Bench::mebibytes(fragment));
            Bench::printAtMost("peak memory beyond one fragment, MiB", Bench::mebibytes(peak - fragment),
                               64.0);
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    const std::string folder = argc > 1 ? argv[1] : ".";
    try {
        // First, while this process is small: the measured ones begin as copies of it.
        measureMemory(folder);
        compareSpeed(folder);
    } catch (const std::exception& error) {
        fmt::print(stderr, "{}\n", error.what());
        return 1;
    }
}
