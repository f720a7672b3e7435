// SPDX-License-Identifier: Apache-2.0
//
// Exports files to PCD with a progress line: export-files OUT.pcd INPUT...
#include <cstdio>
#include <string>
#include <vector>

#include <anchor/Error.hpp>
#include <pcd/ExportPointCloudToPCD.hpp>
#include <readers/registerReaders.hpp>

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fputs("usage: export-files OUT.pcd INPUT...\n", stderr);
        return 2;
    }
    // Readers are registered by an explicit call; a host may add its own with ConvLib::registerReader.
    Tidewatch::registerReaders();

    // The host owns the bundle; the exporter only looks at it.
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    ExportLib::ExportPointCloudToPCD exporter;
    exporter.bundleptr = bundle;
    exporter.OutputPath = argv[1];
    exporter.CellSize = 0.5;

    ConvLib::ReadOptions options;
    options.Tick = [](const std::string& file, double share) {
        std::fprintf(stderr, "\r%s: %3.0f %%", file.c_str(), share * 100.0);
    };
    exporter.setInputFiles(std::vector<std::string>(argv + 2, argv + argc), options);

    try {
        exporter.loadFilesIntoBundle(ExportLib::ExportPointCloudToPCD::ReadStructure);
        if (!exporter.Run()) {
            for (const std::string& error : exporter.Errors)
                std::fprintf(stderr, "%s\n", error.c_str());
            return 1;
        }
    } catch (const Anchor::Error& error) {
        std::fprintf(stderr, "\n%s\n", error.what());
        return 1;
    }

    // Exporters are silent about output errors; the record of what was written is not.
    for (const ConvLib::WrittenFile& file : exporter.writtenFiles()) {
        if (file.failed) {
            std::fprintf(stderr, "\n%s: could not be written\n", file.path.c_str());
            return 1;
        }
        std::printf("%s: %llu points, %llu bytes\n", file.path.c_str(),
                    static_cast<unsigned long long>(file.items), static_cast<unsigned long long>(file.bytes));
    }
    return exporter.writtenFiles().empty() ? 1 : 0;
}
