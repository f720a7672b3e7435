// SPDX-License-Identifier: Apache-2.0
//
// Two threads, each with exporters of its own, over bundles that they share or have to themselves. CI also
// builds this with ThreadSanitizer (preset "ci-threads").
#include "anchor/Cache.hpp"
#include "ascii/AsciiBundle.hpp"
#include "ascii/ExportPointCloudToASCII.hpp"
#include "convlib/Reader.hpp"
#include "las/ExportPointCloudToLas.hpp"
#include "pcd/ExportPointCloudToPCD.hpp"
#include "readers/bundle/BundleFileWriter.hpp"
#include "readers/registerReaders.hpp"
#include "support/ConsoleCapture.hpp"
#include "support/compressLas.hpp"
#include "support/inTwoThreads.hpp"

#include <filesystem>
#include <functional>
#include <map>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Bundle = Anchor::StrongPtr<Sheaf::Bundle>;
/// The files of a folder by name, with their bytes.
using Tree = std::map<std::string, std::string>;

/// A cloud in the standard chart, one in its own chart, and a grid of heights.
Bundle survey() {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    const auto addCloud = [](Support::GridBuilder grid) {
        for (const std::string fragment : {"a", "b", "c"}) {
            Support::Points positions;
            std::vector<unsigned short> intensities;
            for (unsigned i = 0; i < 400; ++i) {
                positions.push_back({0.25 * i, 0.125 * i - 3, 0.01 * (i % 100)});
                intensities.push_back(static_cast<unsigned short>(7 * i));
            }
            grid.field("Positions", fragment, positions);
            grid.field("Intensity", fragment, intensities);
        }
    };
    addCloud(Support::GridBuilder(*bundle, 0, "coast"));
    const auto pier = bundle->makeSlice(1)->makeGrid("pier");
    const auto chart = pier->makeCartesianChart("Local", 0);
    const auto representation = pier->skeletons().make({0, {}})->representations().make(chart);
    for (const std::string name : {"a", "b"}) {
        const auto fragment = pier->makeFragment(name);
        const auto add = [&](const std::string& field, const auto& data) {
            auto target = representation->findField(field.c_str());
            if (!target)
                target = representation->makeField(field, data->elementType());
            target->addFragment(fragment, data);
        };
        Support::Points positions;
        for (unsigned i = 0; i < 300; ++i)
            positions.push_back({0.5 * i, 3, 0.25 * (i % 7)});
        add("Positions", Support::held(positions));
        add("Intensity", Support::held(std::vector<unsigned short>(300, 9)));
    }
    Support::GridBuilder(*bundle, 2, "heights")
        .field("Positions", "", Support::heldLattice({0, 0, 0}, {2, 2, 1}, {40, 30, 1}))
        .field("Height", "", Support::heldArray({40, 30, 1}, std::vector<float>(1200, 1.5F)));
    return bundle;
}

Bundle read(const std::string& path) {
    auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    ConvLib::ReadOptions options;
    options.FragmentPoints = 300;
    ConvLib::readFile(*bundle, path, options);
    return bundle;
}

Support::LasFileBuilder lasFile() {
    Support::LasFileBuilder file;
    file.minor = 2;
    file.format = 3;
    file.addVariedPoints(2000);
    return file;
}

struct Source {
    std::string name;
    /// Gives a bundle that nobody else has. Called by several threads at once, after the first call.
    std::function<Bundle(const Support::TemporaryFolder&)> open;
    /// Writes what open() needs.
    std::function<void(const Support::TemporaryFolder&)> prepare;
    bool hasHeights = true;
};

std::ostream& operator<<(std::ostream& out, const Source& source) {
    return out << source.name;
}

std::vector<Source> sources() {
    return {{"Memory", [](const auto&) { return survey(); }, [](const auto&) {}},
            {"LasFile", [](const auto& folder) { return read(folder / "in.las"); },
             [](const auto& folder) { Support::writeBytes(folder / "in.las", lasFile().build()); }, false},
            {"LazFile", [](const auto& folder) { return read(folder / "in.laz"); },
             [](const auto& folder) {
                 Support::writeBytes(folder / "in.laz", Support::compressLas(lasFile(), 500));
             },
             false},
            {"BundleFile", [](const auto& folder) { return read(folder / "in.h5"); },
             [](const auto& folder) { Tidewatch::writeBundleFile(*survey(), folder / "in.h5"); }}};
}

/// Runs an exporter into a folder, and writes what is in its errors then into a file there.
template <class Exporter>
void run(Exporter& exporter, const Bundle& bundle, const std::filesystem::path& folder,
         const std::string& name) {
    exporter.bundleptr = bundle;
    exporter.OutputPath = (folder / name).string();
    if (!exporter.Run())
        throw std::runtime_error("Run() gave false");
    std::string errors;
    for (const std::string& error : exporter.Errors)
        errors += error + "\n";
    Support::writeBytes(folder / (name + ".errors"), errors);
}

/// Runs all exporters, beginning with one of them, into a folder, which is made.
void exportEverything(const Bundle& bundle, const std::filesystem::path& folder, std::size_t first = 0) {
    std::filesystem::create_directory(folder);
    for (std::size_t i = 0; i < 3; ++i) {
        switch ((first + i) % 3) {
        case 0: {
            ExportLib::ExportPointCloudToLas las;
            las.tiles = true;
            las.Day = 1;
            las.Year = 2024;
            run(las, bundle, folder, "cloud.laz");
            break;
        }
        case 1: {
            ExportLib::ExportPointCloudToPCD pcd;
            run(pcd, bundle, folder, "cloud.pcd");
            break;
        }
        default:
            ExportLib::ExportPointCloudToASCII ascii;
            run(ascii, bundle, folder, "");
        }
    }
}

class ConcurrentExport : public ::testing::TestWithParam<Source> {
protected:
    ConcurrentExport() {
        Tidewatch::registerReaders();
        // So little that arrays of files are dropped and made again all the time.
        Anchor::Cache::MemCache().setLimit(20'000);
        GetParam().prepare(folder_);
        exportEverything(open(), folder_.path() / "alone");
        alone_ = tree("alone");
    }
    ~ConcurrentExport() override { Anchor::Cache::MemCache().setLimit(Anchor::Cache::defaultLimit); }

    [[nodiscard]] Bundle open() const { return GetParam().open(folder_); }
    [[nodiscard]] Tree tree(const std::string& name) const { return Support::treeOf(folder_.path() / name); }
    [[nodiscard]] std::filesystem::path output(std::size_t round, std::size_t thread) const {
        return folder_.path() / outputName(round, thread);
    }
    [[nodiscard]] static std::string outputName(std::size_t round, std::size_t thread) {
        return std::to_string(round) + "-" + std::to_string(thread);
    }
    void expectOutputsAsFromOneThread(std::size_t round) const {
        for (const std::size_t thread : {0U, 1U})
            EXPECT_TRUE(tree(outputName(round, thread)) == alone_)
                << "round " << round << ", thread " << thread;
    }

    Support::ConsoleCapture console_;
    Support::TemporaryFolder folder_;
    Tree alone_;
};

TEST_P(ConcurrentExport, OneThreadWritesFilesOfAllExporters) {
    std::map<std::string, std::size_t> kinds;
    for (const auto& [name, bytes] : alone_)
        kinds[std::filesystem::path(name).extension()] += bytes.size();
    EXPECT_GT(kinds[".laz"], 1000U);
    EXPECT_GT(kinds[".pcd"], 1000U);
    EXPECT_GT(kinds[".asc"], 1000U);
    EXPECT_EQ(kinds.count(".grd"), GetParam().hasHeights ? 1U : 0U);
}

// In each round another pair of exporters begins together, on a bundle that nothing has touched.
TEST_P(ConcurrentExport, TwoThreadsOnOneBundleWriteWhatOneThreadWrites) {
    for (std::size_t round = 0; round < 3; ++round) {
        const Bundle bundle = open();
        Support::inTwoThreads([&](std::size_t thread) {
            exportEverything(bundle, output(round, thread), thread == 0 ? 0 : round);
        });
        expectOutputsAsFromOneThread(round);
    }
}

TEST_P(ConcurrentExport, TwoThreadsOnBundlesOfTheirOwnWriteWhatOneThreadWrites) {
    for (std::size_t round = 0; round < 3; ++round) {
        Support::inTwoThreads([&](std::size_t thread) {
            exportEverything(open(), output(round, thread), thread == 0 ? 0 : round);
        });
        expectOutputsAsFromOneThread(round);
    }
}

INSTANTIATE_TEST_SUITE_P(Sources, ConcurrentExport, ::testing::ValuesIn(sources()),
                         [](const auto& one) { return one.param.name; });

} // namespace
