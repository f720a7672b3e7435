// SPDX-License-Identifier: Apache-2.0
//
// Builds a bundle in memory and exports it: export-memory OUT.pcd
#include <cstdio>
#include <vector>

#include <pcd/ExportPointCloudToPCD.hpp>
#include <sheaf/HeldCreator.hpp>
#include <sheaf/MemArray.hpp>

int main(int argc, char** argv) {
    if (argc != 2)
        return 2;
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    const auto grid = bundle->makeSlice(0)->makeGrid("pier");
    const auto positions = grid->skeletons()
                               .make({0, {}})
                               ->representations()
                               .make(grid->makeCartesianChart(std::string(Sheaf::Grid::standardChart), 0))
                               ->makeField("Positions", typeid(Geom::PhysicalSpace::point));
    std::vector<Geom::PhysicalSpace::point> points{{0, 0, 0}, {2, 2, 2}};
    positions->addFragment(nullptr,
                           Anchor::makeStrong<Sheaf::HeldCreator>(Sheaf::makeArray(std::move(points))));

    ExportLib::ExportPointCloudToPCD exporter;
    exporter.bundleptr = bundle;
    exporter.OutputPath = argv[1];
    if (!exporter.Run() || exporter.writtenFiles().size() != 1 || exporter.writtenFiles()[0].failed)
        return 1;
    std::printf("%s: %llu points\n", argv[1],
                static_cast<unsigned long long>(exporter.writtenFiles()[0].items));
    return 0;
}
