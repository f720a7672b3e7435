// SPDX-License-Identifier: Apache-2.0
//
// Writes the seeds of BundleFileFuzz into the folder given: small valid files of every form.
#include "support/BundleSeeds.hpp"

#include <cstdio>
#include <exception>
#include <filesystem>

int main(int argc, char** argv) {
    using Form = Support::Craft::File::Form;
    if (argc != 2) {
        std::fputs("usage: seeds-BundleFile FOLDER\n", stderr);
        return 2;
    }
    try {
        const std::filesystem::path folder = argv[1];
        std::filesystem::create_directories(folder);
        const auto place = [&](const std::string& name) { return (folder / (name + ".h5")).string(); };
        Support::Seeds::written(place("written"));
        Support::Seeds::writtenStated(place("stated"));
        Support::Seeds::writtenUniform(place("uniform"));
        for (const auto& [name, form] :
             {std::pair("oldest", Form::Oldest), std::pair("version18", Form::Version18),
              std::pair("latest", Form::Latest)}) {
            Support::Seeds::foreign(place(std::string("foreign-") + name), form);
            Support::Seeds::large(place(std::string("large-") + name), form);
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "seeds-BundleFile: %s\n", error.what());
        return 1;
    }
    return 0;
}
