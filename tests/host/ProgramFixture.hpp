// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host/ProgramRunner.hpp"
#include "readers/bundle/BundleFileWriter.hpp"
#include "support/BundleBuilder.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/compressLas.hpp"
#include "support/sharedData.hpp"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace Tidewatch {

/// A test that runs the built program in its own folder.
class ProgramFixture : public ::testing::Test {
protected:
    /// `command` is put before all arguments.
    explicit ProgramFixture(ProgramRunner::Arguments command = {}) : command_(std::move(command)) {}

    ProgramResult run(const ProgramRunner::Arguments& arguments,
                      const std::function<void()>& prepare = {}) const {
        ProgramRunner::Arguments all = command_;
        all.insert(all.end(), arguments.begin(), arguments.end());
        return ProgramRunner::run(place_.path(), all, prepare);
    }

    /// Writes a bundle file into the folder.
    void write(const std::string& name, const Anchor::StrongPtr<Sheaf::Bundle>& bundle) const {
        BundleFileWriteOptions options;
        options.Compression = 0;
        writeBundleFile(*bundle, place_ / name, options);
    }

    /// Points of format 3, as varied as those of a survey.
    [[nodiscard]] static Support::LasFileBuilder variedLas(std::size_t points) {
        Support::LasFileBuilder file;
        file.format = 3;
        file.addVariedPoints(points);
        file.points.erase(file.points.begin() + 3); // is as far away as numbers allow
        file.vlrs.push_back({"LASF_Projection", 34735, std::string(16, '\1')});
        return file;
    }

    /// Writes a LAS file into the folder, compressed in several chunks where its name ends in ".laz".
    void write(const std::string& name, const Support::LasFileBuilder& file) const {
        Support::writeBytes(place_ / name,
                            name.ends_with(".laz") ? Support::compressLas(file, 3000) : file.build());
    }

    [[nodiscard]] std::string read(const std::string& name) const {
        return Support::readBytes(place_ / name);
    }

    /// Names of everything in the folder, folders included, ascending.
    [[nodiscard]] std::vector<std::string> names() const {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(place_.path()))
            found.push_back(entry.path().lexically_relative(place_.path()));
        std::sort(found.begin(), found.end());
        return found;
    }

    Support::TemporaryFolder place_;

private:
    ProgramRunner::Arguments command_;
};

/// Points with three decimals between 0 and 1000.
inline Support::Points randomPoints(std::size_t count, unsigned seed = 1) {
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> thousandths(0, 999'999);
    Support::Points points;
    for (std::size_t number = 0; number < count; ++number)
        points.push_back(
            {thousandths(random) / 1000.0, thousandths(random) / 1000.0, thousandths(random) / 1000.0});
    return points;
}

} // namespace Tidewatch
