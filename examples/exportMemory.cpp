// SPDX-License-Identifier: Apache-2.0
//
// Builds a bundle in memory and exports it to each format: export-memory FOLDER
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

#include <ascii/ExportPointCloudToASCII.hpp>
#include <las/ExportPointCloudToLas.hpp>
#include <pcd/ExportPointCloudToPCD.hpp>
#include <sheaf/HeldCreator.hpp>
#include <sheaf/MemArray.hpp>
#include <sheaf/UniformCartesianArray.hpp>

namespace {

using Geom::PhysicalSpace;
using Fragment = Anchor::StrongPtr<Sheaf::FragmentID>;

/// The place for a grid's fields: its points, without refinement, in the standard chart.
Sheaf::Representation& makeVertices(Sheaf::Grid& grid) {
    return *grid.skeletons().make({0, {}})->representations().make(
        grid.makeCartesianChart(std::string(Sheaf::Grid::standardChart), 0));
}

/// Adds a field with data for one fragment. A field has one element for each of the fragment's positions; the
/// bundle takes the vector over.
template <class T>
void addField(Sheaf::Representation& vertices, const char* name, const Fragment& fragment,
              const Sheaf::Extents& extents, std::vector<T> values) {
    vertices.makeField(name, typeid(T))
        ->addFragment(fragment,
                      Anchor::makeStrong<Sheaf::HeldCreator>(Sheaf::makeArray(extents, std::move(values))));
}

/// A point cloud: a wall of a pier, scanned point by point.
void addCloud(Sheaf::Slice& slice) {
    constexpr std::size_t count = 2000;
    std::vector<PhysicalSpace::point> positions(count);
    std::vector<unsigned short> intensities(count);
    std::vector<unsigned char> classes(count);
    for (std::size_t i = 0; i < count; ++i) {
        const double along = static_cast<double>(i % 200) * 0.25;
        const double up = static_cast<double>(i / 200) * 0.5;
        positions[i] = {431000.0 + along, 5921000.0 + 0.05 * std::sin(along), up};
        intensities[i] = static_cast<unsigned short>(1000 + 30 * (i % 200));
        classes[i] = up > 0.0 ? 6 : 2;
    }
    const auto grid = slice.makeGrid("pier");
    const Fragment fragment = grid->makeFragment("wall");
    Sheaf::Representation& vertices = makeVertices(*grid);
    const Sheaf::Extents extents{count};
    addField(vertices, "Positions", fragment, extents, std::move(positions));
    addField(vertices, "Intensity", fragment, extents, std::move(intensities));
    addField(vertices, "Classification", fragment, extents, std::move(classes));
}

/// An elevation model: a lattice of cells, whose positions are a rule instead of a list of points, with a
/// height for each cell and, in the field that the exporter of grids looks for, what kind of cell it is.
void addElevation(Sheaf::Slice& slice) {
    const Sheaf::MultiIndex<3> size{40, 30, 1};
    std::vector<float> heights;
    std::vector<unsigned char> types;
    for (std::uint64_t row = 0; row < size[1]; ++row) { // from south to north
        for (std::uint64_t column = 0; column < size[0]; ++column) {
            heights.push_back(0.1F * static_cast<float>(column) - 0.05F * static_cast<float>(row));
            types.push_back(heights.back() < 0.0F ? 3 : 1);
        }
    }
    const auto grid = slice.makeGrid("shore");
    const Fragment fragment = grid->makeFragment("shore");
    // A fragment among several may share rows and columns with its neighbours; this one does not.
    Sheaf::FragmentLocation<3, Sheaf::FragmentProperty<2>>::set(*fragment, {0, 0, 0});
    Sheaf::FragmentLocation<3, Sheaf::FragmentProperty<3>>::set(*fragment, {0, 0, 0});
    Sheaf::Representation& vertices = makeVertices(*grid);
    vertices.makeField("Positions", typeid(PhysicalSpace::point))
        ->addFragment(
            fragment,
            Anchor::makeStrong<Sheaf::HeldCreator>(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
                PhysicalSpace::point{431000.0, 5921010.0, 0.0}, PhysicalSpace::vector{2.0, 2.0, 1.0}, size)));
    addField(vertices, "Height", fragment, Sheaf::Extents(size), std::move(heights));
    addField(vertices, "CellType", fragment, Sheaf::Extents(size), std::move(types));
}

/// Runs an exporter whose output is set, and says what came of it. Exporters are silent about output errors:
/// the record of what was written is not.
bool run(ConvLib::BasicConverterDefs& exporter) {
    bool good = exporter.Run();
    for (const std::string& error : exporter.Errors) {
        std::fprintf(stderr, "export-memory: %s\n", error.c_str());
        good = false;
    }
    for (const ConvLib::WrittenFile& file : exporter.writtenFiles()) {
        if (file.failed) {
            std::fprintf(stderr, "export-memory: %s: could not be written\n", file.path.c_str());
            good = false;
        } else {
            std::printf("%s: %llu items, %llu bytes\n", file.path.c_str(),
                        static_cast<unsigned long long>(file.items),
                        static_cast<unsigned long long>(file.bytes));
        }
    }
    if (good && exporter.writtenFiles().empty()) {
        std::fprintf(stderr, "export-memory: there was nothing to write to %s\n",
                     exporter.OutputPath.c_str());
        good = false;
    }
    return good;
}

bool exportAll(const std::filesystem::path& folder) {
    // A bundle lives behind a StrongPtr: to exporters, which hold weak references, one on the stack is none.
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    const auto slice = bundle->makeSlice(0.0);
    addCloud(*slice);
    addElevation(*slice);
    std::filesystem::create_directories(folder / "text");

    // Each grid of a bundle would go to the same file; the filter picks the one that is meant.
    ExportLib::ExportPointCloudToLas las;
    las.bundleptr = bundle;
    las.GridFilter = {"pier"};
    las.OutputPath = folder / "pier.laz";
    las.Year = 2024; // the creation date; without it, today
    las.Day = 172;

    ExportLib::ExportPointCloudToLas plain; // LAS 1.2, uncompressed
    plain.bundleptr = bundle;
    plain.GridFilter = {"pier"};
    plain.OutputPath = folder / "pier.las";
    plain.Version = 2;
    plain.uncompressed = true;
    plain.Year = 2024;
    plain.Day = 172;

    ExportLib::ExportPointCloudToPCD pcd;
    pcd.bundleptr = bundle;
    pcd.GridFilter = {"pier"};
    pcd.OutputPath = folder / "pier.pcd";
    pcd.CellSize = 0.5; // a point for each half metre

    // Points become XYZ text: text/Positions/wall.asc, numbers lists of values, each field in a folder.
    ExportLib::ExportPointCloudToASCII points;
    points.bundleptr = bundle;
    points.GridFilter = {"pier"};
    points.OutputPath = folder / "text";

    // Numbers on a lattice become ESRI ASCII grids: text/Height/shore.grd. Water becomes cells without data.
    ExportLib::ExportPointCloudToASCII grids;
    grids.bundleptr = bundle;
    grids.GridFilter = {"shore"};
    grids.FieldFilter = {"Height"};
    grids.CellTypeFilter = {};
    grids.CellTypeFilter.add(1, 1);
    grids.OutputPath = folder / "text";

    bool good = true;
    const std::vector<ConvLib::BasicConverterDefs*> exporters{&las, &plain, &pcd, &points, &grids};
    for (ConvLib::BasicConverterDefs* exporter : exporters)
        good = run(*exporter) && good;
    return good;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: export-memory FOLDER\n", stderr);
        return 2;
    }
    try {
        return exportAll(argv[1]) ? 0 : 1;
    } catch (const std::exception& error) { // Anchor::Error, or what the file system reports
        std::fprintf(stderr, "export-memory: %s\n", error.what());
        return 1;
    }
}
