// SPDX-License-Identifier: Apache-2.0
//
// Arbitrary bytes choose a bundle, an exporter and its settings. What the exporter writes is read back by plain readers of
// the published layouts, and compared with the exporter's plan, its record of files and the points of the bundle.
#include "anchor/Console.hpp"
#include "ascii/AsciiPlan.hpp"
#include "ascii/ExportPointCloudToASCII.hpp"
#include "las/ExportPointCloudToLas.hpp"
#include "las/LasPlan.hpp"
#include "pcd/ExportPointCloudToPCD.hpp"
#include "pcd/PcdPlan.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/UniformCartesianArray.hpp"
#include "support/BundleBuilder.hpp"
#include "support/WrittenLas.hpp"
#include "support/decodeLas.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

namespace {

namespace fs = std::filesystem;
using Support::Points;

[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "ExportFuzz: %s\n", what.c_str());
    std::abort();
}

void require(bool isTrue, const std::string& what) {
    if (!isTrue)
        fail(what);
}

/// A grid's points as they should be found in a file, and what else is known of the bundle.
struct Expected {
    Points points;
    /// All fields have as many elements as there are positions, and arrays are what their creators state.
    bool isConsistent = true;
    bool isLattice = false;
};

template <class T>
std::vector<T> elements(FuzzedDataProvider& data, std::size_t count) {
    using Component = typename Sheaf::ElementTraits<T>::Component;
    std::vector<T> all(count);
    for (T& element : all) {
        std::array<Component, Sheaf::ElementTraits<T>::componentCount> components{};
        for (Component& component : components) {
            if constexpr (std::is_floating_point_v<Component>)
                component = static_cast<Component>(data.ConsumeIntegral<std::int16_t>()) / 8;
            else
                component = data.ConsumeIntegral<Component>();
        }
        if constexpr (components.size() == 1)
            element = components[0];
        else
            std::memcpy(static_cast<void*>(&element), components.data(), sizeof element);
    }
    return all;
}

Points positions(FuzzedDataProvider& data, std::size_t count) {
    Points points(count);
    for (auto& point : points) {
        point.x = data.ConsumeIntegral<std::int16_t>() / 8.0;
        point.y = data.ConsumeIntegral<std::int16_t>() / 8.0;
        point.z = data.ConsumeIntegral<std::int8_t>() / 8.0;
    }
    return points;
}

/// Adds a grid of points, or a lattice, to the bundle.
Expected addGrid(FuzzedDataProvider& data, Sheaf::Bundle& bundle) {
    struct Kind {
        const char* name;
        const char* type;
    };
    constexpr Kind kinds[] = {{"Intensity", "uint16"},
                              {"Classification", "uint8"},
                              {"ReturnNumber", "uint8"},
                              {"NumberOfReturns", "uint8"},
                              {"UserData", "uint8"},
                              {"PointSourceID", "uint16"},
                              {"ScanDirectionFlag", "uint8"},
                              {"EdgeOfFlightLine", "uint8"},
                              {"ScanAngleRank", "int8"},
                              {"GPSTime", "double"},
                              {"RGB", "color"},
                              {"Echo", "float"},
                              {"CellType", "uint8"},
                              {"Reflectance", "float"},
                              {"Intensity", "double"}};
    Expected expected;
    Support::GridBuilder grid(bundle, 0, "grid");
    expected.isLattice = data.ConsumeIntegralInRange(0, 3) == 0;
    if (expected.isLattice) {
        const std::uint64_t columns = data.ConsumeIntegralInRange<std::uint64_t>(1, 5);
        const std::uint64_t rows = data.ConsumeIntegralInRange<std::uint64_t>(1, 5);
        const double spacing = data.ConsumeIntegralInRange(1, 80) / 8.0;
        grid.field(
            "Positions", "a",
            Anchor::makeStrong<Sheaf::HeldCreator>(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
                Geom::PhysicalSpace::point{data.ConsumeIntegral<std::int16_t>() / 8.0, 0, 0},
                Geom::PhysicalSpace::vector{spacing, spacing, 1}, Sheaf::MultiIndex<3>{columns, rows, 1})));
        const auto cells = [&](const char* name, auto values) {
            grid.field(name, "a",
                       Anchor::makeStrong<Sheaf::HeldCreator>(
                           Sheaf::makeArray(Sheaf::Extents{columns, rows, 1}, std::move(values))));
        };
        cells("Height", elements<float>(data, columns * rows));
        cells("CellType", elements<unsigned char>(data, columns * rows));
        return expected;
    }
    const int fragments = data.ConsumeIntegralInRange(1, 3);
    std::set<std::string> names;
    for (const Kind& kind : kinds) {
        if (!data.ConsumeBool() || !names.insert(kind.name).second)
            continue;
        for (int fragment = 0; fragment < fragments; ++fragment) {
            // The sizes follow from the number of the fragment, so that all fields agree on them.
            std::size_t count = 3 * static_cast<std::size_t>(fragment) + 1;
            if (data.ConsumeIntegralInRange(0, 15) == 0) {
                count = data.ConsumeIntegralInRange<std::size_t>(0, 9);
                expected.isConsistent = false;
            }
            Sheaf::visitElementName(kind.type, [&](auto tag) {
                using T = typename decltype(tag)::type;
                grid.field(kind.name, std::to_string(fragment), elements<T>(data, count));
            });
        }
    }
    for (int fragment = 0; fragment < fragments; ++fragment) {
        const Points points = positions(data, 3 * static_cast<std::size_t>(fragment) + 1);
        expected.points.insert(expected.points.end(), points.begin(), points.end());
        grid.field("Positions", std::to_string(fragment), points);
    }
    return expected;
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

std::vector<double> numbersOf(const std::string& line) {
    std::vector<double> numbers;
    const char* place = line.data();
    const char* const end = place + line.size();
    while (place != end) {
        if (*place == ' ') {
            ++place;
            continue;
        }
        double number = 0;
        const auto read = std::from_chars(place, end, number);
        require(read.ec == std::errc(), "not a number: " + line);
        place = read.ptr;
        numbers.push_back(number);
    }
    return numbers;
}

bool allFields(const std::string&) {
    return true;
}

/// The paths of files that were recorded, each once.
std::set<std::string> recorded(const ConvLib::BasicConverterDefs& exporter) {
    std::set<std::string> paths;
    for (const ConvLib::WrittenFile& file : exporter.writtenFiles()) {
        require(!file.failed, "a write failed");
        require(fs::file_size(file.path) == file.bytes, file.path + " has another size than was recorded");
        paths.insert(file.path);
    }
    return paths;
}

void exportLas(FuzzedDataProvider& data, const Anchor::StrongPtr<Sheaf::Bundle>& bundle,
               const Sheaf::Grid& grid, const Expected& expected, const fs::path& folder) {
    ExportLib::ExportPointCloudToLas exporter;
    exporter.bundleptr = bundle;
    exporter.OutputPath = (folder / "out").string();
    exporter.Version = data.ConsumeIntegralInRange(2, 4);
    exporter.tiles = data.ConsumeBool();
    exporter.uncompressed = data.ConsumeBool();
    exporter.PointSourceID = data.ConsumeIntegralInRange(0, 3);
    exporter.setCarry(data.ConsumeBool());
    exporter.setConforming(data.ConsumeBool());
    const auto plan = ExportLib::LasPlan::of(grid, ExportLib::LasSettings::of(exporter), allFields);
    require(exporter.Run(), "LAS: the run failed");

    std::set<std::string> planned;
    std::uint64_t points = 0;
    for (const auto& fragment : plan.fragments) {
        if (fragment.content == ExportLib::LasPlan::Content::Lattice || !fragment.obstacle.empty())
            continue;
        planned.insert(fragment.file);
        points += fragment.points;
    }
    const std::set<std::string> written = recorded(exporter);
    if (expected.isConsistent)
        require(planned == written, "LAS: files other than planned");
    std::vector<std::array<double, 3>> found;
    for (const std::string& path : written) {
        const auto file = Support::WrittenLas::read(path);
        require(file.isCompressed() != exporter.uncompressed, "LAS: compressed or not");
        static_cast<void>(file.vlrs());
        const auto records = file.isCompressed() ? Support::decodeLas(path) : file.records();
        require(records.size() == file.count(), "LAS: another number of points than the header states");
        for (const Support::LasRecord& record : records)
            found.push_back({record.x * file.scale(0) + file.offset(0),
                             record.y * file.scale(1) + file.offset(1),
                             record.z * file.scale(2) + file.offset(2)});
    }
    if (!expected.isConsistent || expected.isLattice)
        return;
    require(found.size() == points && points == expected.points.size(),
            "LAS: another number of points than planned");
    for (std::size_t i = 0; i < found.size(); ++i) {
        const auto& point = expected.points[i];
        require(std::fabs(found[i][0] - point.x) < 1e-3 && std::fabs(found[i][1] - point.y) < 1e-3 &&
                    std::fabs(found[i][2] - point.z) < 1e-3,
                "LAS: point " + std::to_string(i) + " is elsewhere");
    }
}

void exportPcd(FuzzedDataProvider& data, const Anchor::StrongPtr<Sheaf::Bundle>& bundle,
               const Sheaf::Grid& grid, const Expected& expected, const fs::path& folder) {
    ExportLib::ExportPointCloudToPCD exporter;
    exporter.bundleptr = bundle;
    exporter.OutputPath = (folder / "out.pcd").string();
    exporter.CellSize = data.ConsumeIntegralInRange(1, 400) / 8.0;
    exporter.Thinning = data.ConsumeBool();
    exporter.ExactCounts = true;
    const auto plan = ExportLib::PcdPlan::of(grid, exporter.RefLevel, allFields);
    require(exporter.Run(), "PCD: the run failed");
    const std::set<std::string> written = recorded(exporter);
    require(written.size() == (plan.obstacle.empty() ? 1U : 0U), "PCD: files other than planned");
    if (written.empty())
        return;
    const std::vector<std::string> lines = linesOf(Support::readBytes(exporter.OutputPath));
    const auto begin = std::find(lines.begin(), lines.end(), "DATA ascii");
    require(begin != lines.end(), "PCD: no data");
    const auto countOf = [&](const std::string& key) {
        const auto line = std::find_if(lines.begin(), begin, [&](const std::string& text) {
            return text.compare(0, key.size(), key) == 0;
        });
        require(line != begin, "PCD: no " + key);
        return static_cast<std::size_t>(std::atoll(line->c_str() + key.size()));
    };
    const auto count = static_cast<std::size_t>(lines.end() - begin - 1);
    require(countOf("WIDTH ") == count && countOf("POINTS ") == count,
            "PCD: another number of lines than stated");
    require(count == exporter.writtenFiles().back().items, "PCD: another number of lines than recorded");
    require(exporter.Thinning ? count <= expected.points.size() : count == expected.points.size(),
            "PCD: another number of points");
    const std::size_t columns = plan.isShaded() ? 5 : 3;
    Geom::PhysicalSpace::point first{};
    for (std::size_t i = 0; i < count; ++i) {
        const std::string& line = *(begin + 1 + static_cast<std::ptrdiff_t>(i));
        // Where all intensities are the same, they are not numbers.
        if (line.find("nan") != std::string::npos)
            continue;
        const std::vector<double> numbers = numbersOf(line);
        require(!expected.isConsistent || numbers.size() == columns, "PCD: a line of another length");
        if (exporter.Thinning || !expected.isConsistent)
            continue;
        // The shift is the same for all.
        const auto& point = expected.points[i];
        const Geom::PhysicalSpace::point shift{point.x - numbers[0], point.y - numbers[1],
                                               point.z - numbers[2]};
        if (i == 0)
            first = shift;
        require(std::fabs(shift.x - first.x) < 1e-3 && std::fabs(shift.y - first.y) < 1e-3 &&
                    std::fabs(shift.z - first.z) < 1e-3,
                "PCD: point " + std::to_string(i) + " is elsewhere");
    }
}

/// A grid as the format is published: six lines of a key and a number, then rows.
void readEsriGrid(const std::string& path, std::uint64_t cells) {
    const std::vector<std::string> lines = linesOf(Support::readBytes(path));
    if (cells == 0)
        return;
    require(lines.size() > 6, "grid: no header");
    std::uint64_t places = 1;
    for (std::size_t i = 0; i < 2; ++i)
        places *= static_cast<std::uint64_t>(numbersOf(lines[i].substr(lines[i].find(' '))).at(0));
    require(places == cells, "grid: other rows and columns than recorded");
    std::uint64_t values = 0;
    for (std::size_t i = 6; i < lines.size(); ++i)
        values += numbersOf(lines[i]).size();
    require(values == cells, "grid: another number of values than stated");
}

void exportAscii(FuzzedDataProvider& data, const Anchor::StrongPtr<Sheaf::Bundle>& bundle,
                 const Sheaf::Grid& grid, const Expected& expected, const fs::path& folder) {
    ExportLib::ExportPointCloudToASCII exporter;
    exporter.bundleptr = bundle;
    exporter.OutputPath = folder.string();
    exporter.RefLevel = data.ConsumeBool() ? -2 : -1;
    exporter.TileSuffix = data.ConsumeBool();
    exporter.Append = data.ConsumeBool();
    const ExportLib::AsciiSettings settings{exporter.FilterField, exporter.RefLevel, exporter.Precision,
                                            exporter.Append, exporter.TileSuffix};
    const auto plan = ExportLib::AsciiPlan::of(grid, settings, allFields);
    require(exporter.Run(), "ASCII: the run failed");

    std::set<std::string> planned;
    for (const auto& fragment : plan.fragments) {
        if (fragment.form != ExportLib::AsciiPlan::Form::None && fragment.isCertain)
            planned.insert((folder / fragment.file).string());
    }
    std::set<std::string> written;
    for (const ConvLib::WrittenFile& file : exporter.writtenFiles()) {
        require(!file.failed, "a write failed");
        written.insert(file.path);
        if (exporter.Append)
            continue;
        require(fs::file_size(file.path) == file.bytes, file.path + " has another size than was recorded");
        if (fs::path(file.path).extension() == ".grd") {
            readEsriGrid(file.path, file.items);
        } else {
            const std::vector<std::string> lines = linesOf(Support::readBytes(file.path));
            require(lines.size() == file.items, "ASCII: another number of lines than recorded");
            for (const std::string& line : lines)
                require(!numbersOf(line).empty(), "ASCII: an empty line");
        }
    }
    if (expected.isConsistent)
        require(planned == written, "ASCII: files other than planned");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    Anchor::Console::setSink([](std::string_view) {});
    FuzzedDataProvider data(bytes, size);
    const Support::TemporaryFolder folder;
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    const int exporter = data.ConsumeIntegralInRange(0, 2);
    const Expected expected = addGrid(data, *bundle);
    const auto grid = bundle->slices().begin()->second.lock()->grids().at("grid").lock();
    (exporter == 0   ? exportLas
     : exporter == 1 ? exportPcd
                     : exportAscii)(data, bundle, *grid, expected, folder.path());
    return 0;
}
