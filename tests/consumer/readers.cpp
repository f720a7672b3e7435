// SPDX-License-Identifier: Apache-2.0
//
// Writes a bundle file, reads it back through the registered readers and exports it: consumer-readers FILE.h5 OUT.pcd
#include <anchor/Error.hpp>
#include <pcd/ExportPointCloudToPCD.hpp>
#include <readers/BundleFileWriter.hpp>
#include <readers/registerReaders.hpp>
#include <sheaf/HeldCreator.hpp>
#include <sheaf/MemArray.hpp>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 3)
        return 2;
    try {
        const auto made = Anchor::makeStrong<Sheaf::Bundle>();
        const auto grid = made->makeSlice(0)->makeGrid("pier");
        std::vector<Geom::PhysicalSpace::point> points{{0, 0, 0}, {2, 2, 2}};
        grid->skeletons()
            .make({0, {}})
            ->representations()
            .make(grid->makeCartesianChart("chart", 0))
            ->makeField("Positions", typeid(Geom::PhysicalSpace::point))
            ->addFragment(nullptr,
                          Anchor::makeStrong<Sheaf::HeldCreator>(Sheaf::makeArray(std::move(points))));
        Tidewatch::writeBundleFile(*made, argv[1]);

        Tidewatch::registerReaders();
        const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
        ExportLib::ExportPointCloudToPCD exporter;
        exporter.bundleptr = bundle;
        exporter.OutputPath = argv[2];
        exporter.setInputFiles({argv[1]});
        exporter.loadFilesIntoBundle(ExportLib::ExportPointCloudToPCD::ReadStructure);
        if (!exporter.Run() || exporter.writtenFiles().size() != 1 || exporter.writtenFiles()[0].items != 2)
            return 1;
        std::printf("%s: %llu points\n", argv[2],
                    static_cast<unsigned long long>(exporter.writtenFiles()[0].items));
    } catch (const Anchor::Error& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
