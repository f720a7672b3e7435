// SPDX-License-Identifier: Apache-2.0
//
// Converts files as the program does, written aside, checked and then put in place: convert-files OUT.laz INPUT...
#include <cstdio>
#include <string>
#include <vector>

#include <anchor/Error.hpp>
#include <library/las/exportLas.hpp>
#include <readers/registerReaders.hpp>

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fputs("usage: convert-files OUT.laz INPUT...\n", stderr);
        return 2;
    }
    try {
        Tidewatch::registerReaders();
        Tidewatch::InputOptions files;
        files.files = std::vector<std::string>(argv + 2, argv + argc);
        const Tidewatch::Inputs inputs(files);

        Tidewatch::LasOptions options;
        options.output = argv[1];
        options.overwrite = true;
        options.verify = true;
        const Tidewatch::ExportReport report = Tidewatch::exportLas(inputs, options);

        for (const Tidewatch::Loss& loss : report.losses)
            std::fprintf(stderr, "%s: %s\n", loss.kind.c_str(), loss.message.c_str());
        if (!report.placed) {
            std::fprintf(stderr, "nothing was written: %s\n", report.whyNothing.c_str());
            return 1;
        }
        for (const Tidewatch::ExportReport::File& file : report.files)
            std::printf("%s: %llu points\n", file.path.c_str(), static_cast<unsigned long long>(file.items));
    } catch (const Anchor::Error& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
