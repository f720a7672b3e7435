// SPDX-License-Identifier: Apache-2.0
//
// What exporters and readers do side by side when the host lends workers. CI also builds this with ThreadSanitizer
// (preset "ci-threads").
#include "anchor/Cache.hpp"
#include "ascii/AsciiBundle.hpp"
#include "ascii/ExportPointCloudToASCII.hpp"
#include "convlib/Reader.hpp"
#include "las/ExportPointCloudToLas.hpp"
#include "pcd/ExportPointCloudToPCD.hpp"
#include "readers/registerReaders.hpp"
#include "support/ConsoleCapture.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/ThreadWorkers.hpp"
#include "support/compressLas.hpp"

#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Bundle = Anchor::StrongPtr<Sheaf::Bundle>;
using Workers = Anchor::StrongPtr<Anchor::Workers>;

/// Counts all calls, in order.
class CountingObserver final : public ConvLib::RunObserver {
public:
    void positionsWritten(std::span<const Geom::PhysicalSpace::point> positions) override {
        for (const auto& p : positions)
            log_ += std::to_string(p.x) + " ";
    }
    void valuesChanged(const ConvLib::ChangedValues& changes) override {
        log_ += std::string(changes.attribute) + ":" + std::to_string(changes.count) + "/" +
                std::to_string(changes.total) + "/" + std::to_string(changes.most) + "\n";
    }
    [[nodiscard]] const std::string& log() const noexcept { return log_; }

private:
    std::string log_;
};

struct ConcurrentWorkers : ::testing::Test {
    ConcurrentWorkers() {
        Tidewatch::registerReaders();
        Support::LasFileBuilder file;
        file.minor = 2;
        file.format = 3;
        file.addVariedPoints(120'000);
        // Channels of 8 bits, which takes all fragments to find out.
        for (auto& point : file.points) {
            for (auto& channel : point.rgb)
                channel &= 0xFF;
        }
        Support::writeBytes(folder / "in.laz", Support::compressLas(file, 30'000));
        Support::writeBytes(folder / "in.las", file.build());
    }
    ~ConcurrentWorkers() override { Anchor::Cache::MemCache().setLimit(Anchor::Cache::defaultLimit); }

    [[nodiscard]] Bundle read(const std::string& name, const Workers& workers) const {
        auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
        ConvLib::ReadOptions options;
        options.FragmentPoints = 70'000;
        options.Workers = workers;
        ConvLib::readFile(*bundle, folder / name, options);
        std::vector<float> heights;
        for (int i = 0; i < 300 * 200; ++i)
            heights.push_back(static_cast<float>(i) / 7);
        Support::GridBuilder(*bundle, 2, "heights")
            .field("Positions", "", Support::heldLattice({0, 0, 0}, {2, 2, 1}, {300, 200, 1}))
            .field("CellType", "", Support::heldArray({300, 200, 1}, std::vector<unsigned char>(60'000, 1)))
            .field("Height", "", Support::heldArray({300, 200, 1}, heights));
        return bundle;
    }

    template <class Exporter>
    std::string run(Exporter& exporter, const Bundle& bundle, const Workers& workers,
                    const std::filesystem::path& output) const {
        const auto observer = Anchor::makeStrong<CountingObserver>();
        exporter.bundleptr = bundle;
        exporter.OutputPath = output.string();
        exporter.setWorkers(workers);
        exporter.setObserver(observer);
        exporter.setFlushLines(false);
        if (!exporter.Run())
            throw std::runtime_error("Run() gave false");
        return observer->log();
    }

    /// Everything that the exporters write and report, by name.
    std::map<std::string, std::string> exportAll(const std::string& input, unsigned count) {
        const Workers workers = Support::threadWorkers(count);
        const std::filesystem::path target = folder / (input + "-" + std::to_string(count));
        std::filesystem::create_directory(target);
        std::map<std::string, std::string> logs;
        const Bundle bundle = read(input, workers);
        for (const int version : {2, 4}) {
            ExportLib::ExportPointCloudToLas las;
            las.Version = version;
            las.Day = 1;
            las.Year = 2024;
            const std::string name = "cloud" + std::to_string(version) + ".laz";
            logs["log of " + name] = run(las, bundle, workers, target / name);
        }
        ExportLib::ExportPointCloudToPCD pcd;
        pcd.CellSize = 0.01;
        logs["log of pcd"] = run(pcd, bundle, workers, target / "cloud.pcd");
        ExportLib::ExportPointCloudToASCII ascii;
        logs["log of ascii"] = run(ascii, bundle, workers, target);
        auto all = Support::treeOf(target);
        all.merge(logs);
        return all;
    }

    Support::ConsoleCapture console;
    Support::TemporaryFolder folder;
};

TEST_F(ConcurrentWorkers, AnyNumberOfThemGivesTheSameFilesAndReports) {
    for (const std::string input : {"in.las", "in.laz"}) {
        const auto alone = exportAll(input, 1);
        ASSERT_GT(alone.at("cloud2.laz").size(), 100'000U);
        ASSERT_GT(alone.at("cloud.pcd").size(), 100'000U);
        for (const unsigned count : {2U, 3U, 16U}) {
            const auto shared = exportAll(input, count);
            ASSERT_EQ(shared.size(), alone.size());
            for (const auto& [name, bytes] : alone)
                EXPECT_TRUE(shared.at(name) == bytes) << name << ", " << count << " workers, " << input;
        }
    }
}

TEST_F(ConcurrentWorkers, ASmallCacheGivesTheSameFiles) {
    const auto alone = exportAll("in.laz", 1);
    Anchor::Cache::MemCache().setLimit(500'000);
    EXPECT_TRUE(exportAll("in.laz", 3) == alone);
}

TEST_F(ConcurrentWorkers, FirstDamagedChunkIsTheOneThatIsReported) {
    std::string bytes = Support::readBytes(folder / "in.laz");
    // In the second and the third of four chunks.
    for (const double place : {0.4, 0.7}) {
        for (std::size_t i = 0; i < 2000; ++i)
            bytes[static_cast<std::size_t>(place * static_cast<double>(bytes.size())) + i] ^= '\x5a';
    }
    Support::writeBytes(folder / "bad.laz", bytes);
    const auto failure = [&](unsigned count) -> std::string {
        const Workers workers = Support::threadWorkers(count);
        auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
        ConvLib::ReadOptions options;
        options.Workers = workers;
        ConvLib::readFile(*bundle, folder / "bad.laz", options);
        ExportLib::ExportPointCloudToASCII ascii;
        try {
            run(ascii, bundle, workers, folder.path());
        } catch (const Anchor::FormatError& error) {
            return error.what();
        }
        return "none";
    };
    const std::string alone = failure(1);
    EXPECT_NE(alone, "none");
    for (int round = 0; round < 5; ++round) {
        EXPECT_EQ(failure(2), alone);
        EXPECT_EQ(failure(16), alone);
    }
}

} // namespace
